#include "Helpers/Tarvik_FileInZipInfo.h"

#include <utility>

namespace tarvik {

Tarvik_FileInZipInfo::Tarvik_FileInZipInfo(std::string name, std::uint64_t length,
                                           std::int32_t level, bool crypted, std::uint64_t size,
                                           Date date, std::uint64_t crc32)
    : name_(std::move(name)),
      length_(length),
      level_(level),
      crypted_(crypted),
      size_(size),
      date_(date),
      crc32_(crc32) {}

}  // namespace tarvik
