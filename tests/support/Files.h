#pragma once

#include <tarvik/Value.h>

#include <string>

namespace tarvik::testsupport {

// The whole file, byte for byte; empty when it cannot be read.
std::string readFile(const std::string& path);

// Replaces the file's contents with the bytes, creating the file but not its folder.
void writeFile(const std::string& path, const std::string& bytes);
void writeFile(const std::string& path, const Data& bytes);

}  // namespace tarvik::testsupport
