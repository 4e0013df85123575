#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace tarvik {

class TVKZipEntryEncrypter;

// One entry of an archive being written. Does not own the archive's handle.
class Tarvik_ZipWriteStream {
  public:
    // An entry that minizip compresses itself.
    Tarvik_ZipWriteStream(void* zipFileStruct, std::string fileNameInZip);
    // A password entry that minizip opened raw: the stream compresses and encrypts the data,
    // and minizip stores the result as it is.
    Tarvik_ZipWriteStream(void* zipFileStruct, std::string fileNameInZip,
                          std::unique_ptr<TVKZipEntryEncrypter> encrypter);
    ~Tarvik_ZipWriteStream();
    Tarvik_ZipWriteStream(const Tarvik_ZipWriteStream&) = delete;
    Tarvik_ZipWriteStream& operator=(const Tarvik_ZipWriteStream&) = delete;

    // Writes the bytes; their count is cut to its low 32 bits, as the archive interface takes
    // it. Takes a view so that any buffer, a `Data` among them, can be passed without a copy.
    void writeData(std::span<const std::uint8_t> data);
    void writeBytes(const void* bytes, std::uint32_t length);
    // Closes the entry. For a password entry, data whose CRC is not the one given when the
    // entry was opened throws, with minizip's CRC error code (-105): the entry is in the
    // archive, but its password check and CRC do not fit its data.
    void finishedWriting();

    const std::string& fileNameInZip() const { return fileNameInZip_; }

  private:
    void writeStoredBytes(std::span<const std::uint8_t> bytes);

    void* zipFile_;
    std::string fileNameInZip_;
    std::unique_ptr<TVKZipEntryEncrypter> encrypter_;  // set for a password entry
};

}  // namespace tarvik
