#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tarvik {

// One entry of an archive being written. Does not own the archive's handle.
class Tarvik_ZipWriteStream {
  public:
    Tarvik_ZipWriteStream(void* zipFileStruct, std::string fileNameInZip);

    // Writes the bytes; their count is cut to its low 32 bits, as the archive interface takes
    // it. Takes a view so that any buffer, a `Data` among them, can be passed without a copy.
    void writeData(std::span<const std::uint8_t> data);
    void writeBytes(const void* bytes, std::uint32_t length);
    void finishedWriting();

    const std::string& fileNameInZip() const { return fileNameInZip_; }

  private:
    void* zipFile_;
    std::string fileNameInZip_;
};

}  // namespace tarvik
