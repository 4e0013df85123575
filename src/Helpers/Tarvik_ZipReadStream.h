#pragma once

#include <tarvik/Value.h>

#include <cstdint>
#include <memory>
#include <string>

namespace tarvik {

class TVKZipEntryDecrypter;

// The current entry of an archive being read. Does not own the archive's handle.
class Tarvik_ZipReadStream {
  public:
    // An entry that minizip opened for reading: it inflates and checks the CRC itself.
    Tarvik_ZipReadStream(void* unzFileStruct, std::string fileNameInZip);
    // A password entry that minizip opened raw, read past its encryption header: the stream
    // decrypts and inflates what it reads, and checks the CRC when the entry is finished.
    Tarvik_ZipReadStream(void* unzFileStruct, std::string fileNameInZip,
                         std::unique_ptr<TVKZipEntryDecrypter> decrypter);
    ~Tarvik_ZipReadStream();
    Tarvik_ZipReadStream(const Tarvik_ZipReadStream&) = delete;
    Tarvik_ZipReadStream& operator=(const Tarvik_ZipReadStream&) = delete;

    // Up to `length` bytes of the entry; empty at its end.
    Data readDataOfLength(std::uint32_t length);
    // Closes the entry. When all of it was read, a CRC or length that does not match the
    // entry's header throws, with minizip's CRC error code (-105).
    void finishedReading();

    const std::string& fileNameInZip() const { return fileNameInZip_; }

  private:
    void* unzFile_;
    std::string fileNameInZip_;
    std::unique_ptr<TVKZipEntryDecrypter> decrypter_;  // set for a password entry
};

}  // namespace tarvik
