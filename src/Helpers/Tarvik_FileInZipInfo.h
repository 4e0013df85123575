#pragma once

#include <tarvik/Value.h>

#include <cstdint>
#include <string>

namespace tarvik {

// Facts about one entry of an archive, as its header gives them.
class Tarvik_FileInZipInfo {
  public:
    Tarvik_FileInZipInfo(std::string name, std::uint64_t length, std::int32_t level, bool crypted,
                         std::uint64_t size, Date date, std::uint64_t crc32);

    const std::string& name() const { return name_; }  // canonical decomposed form (NFD)
    std::uint64_t length() const { return length_; }   // uncompressed size
    std::int32_t level() const { return level_; }      // -1 default, 0 stored, 1 fastest, 9 best
    bool crypted() const { return crypted_; }
    std::uint64_t size() const { return size_; }  // compressed size
    Date date() const { return date_; }
    std::uint64_t crc32() const { return crc32_; }

  private:
    std::string name_;
    std::uint64_t length_;
    std::int32_t level_;
    bool crypted_;
    std::uint64_t size_;
    Date date_;
    std::uint64_t crc32_;
};

}  // namespace tarvik
