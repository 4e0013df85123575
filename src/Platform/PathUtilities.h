#pragma once

#include <string>

namespace tarvik {

// Path text operations as the platform's string methods do them.
// "/a/b/" -> "b"; "/" -> "/"; "" -> "".
std::string lastPathComponent(const std::string& path);
// "/a/b.tar.gz" -> "gz"; "/a/.profile" -> ""; "/a/b" -> "".
std::string pathExtension(const std::string& path);
// "/a" + "b" -> "/a/b"; "/a/" + "b" -> "/a/b".
std::string appendingPathComponent(const std::string& path, const std::string& component);
// "/a/b" -> "/a"; "/a" -> "/"; "a" -> "".
std::string deletingLastPathComponent(const std::string& path);

}  // namespace tarvik
