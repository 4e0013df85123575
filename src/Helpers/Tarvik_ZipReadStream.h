#pragma once

#include <tarvik/Value.h>

#include <cstdint>
#include <string>

namespace tarvik {

// The current entry of an archive being read. Does not own the archive's handle.
class Tarvik_ZipReadStream {
  public:
    Tarvik_ZipReadStream(void* unzFileStruct, std::string fileNameInZip);

    // Up to `length` bytes of the entry; empty at its end.
    Data readDataOfLength(std::uint32_t length);
    void finishedReading();

    const std::string& fileNameInZip() const { return fileNameInZip_; }

  private:
    void* unzFile_;
    std::string fileNameInZip_;
};

}  // namespace tarvik
