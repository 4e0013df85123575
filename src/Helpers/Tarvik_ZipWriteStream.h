#pragma once

#include <tarvik/Value.h>

#include <cstdint>
#include <string>

namespace tarvik {

// One entry of an archive being written. Does not own the archive's handle.
class Tarvik_ZipWriteStream {
public:
    Tarvik_ZipWriteStream(void* zipFileStruct, std::string fileNameInZip);

    // Writes the data; its length is cut to 32 bits, as the archive interface takes it.
    void writeData(const Data& data);
    void writeBytes(const void* bytes, std::uint32_t length);
    void finishedWriting();

    const std::string& fileNameInZip() const { return fileNameInZip_; }

private:
    void* zipFile_;
    std::string fileNameInZip_;
};

}  // namespace tarvik
