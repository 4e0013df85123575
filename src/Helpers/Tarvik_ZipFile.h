#pragma once

#include "Helpers/Tarvik_FileInZipInfo.h"
#include "Helpers/Tarvik_ZipException.h"
#include "Helpers/Tarvik_ZipReadStream.h"
#include "Helpers/Tarvik_ZipWriteStream.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tarvik {

// Modes of Tarvik_ZipFile.
inline constexpr std::int32_t Tarvik_ZipFileModeUnzip = 0;   // read an existing archive
inline constexpr std::int32_t Tarvik_ZipFileModeCreate = 1;  // new archive, replacing a file
inline constexpr std::int32_t Tarvik_ZipFileModeAppend = 2;  // add entries to an archive

// Tarvik_ZipException::error() of a password that does not open an entry. It extends minizip's
// own result codes, beside its CRC error (-105).
inline constexpr std::int64_t Tarvik_ZipErrorWrongPassword = -106;

// A zip archive over minizip. Every failure throws Tarvik_ZipException. Close it with `close`;
// an archive still open when destroyed is closed quietly, so that no handle leaks.
//
// Entry names are UTF-8; names that are not plain ASCII are flagged as such in the archive.
// Password entries use the traditional zip cipher (see TVKZipCrypto), which the SDK applies
// itself around minizip's raw entry access.
class Tarvik_ZipFile {
  public:
    Tarvik_ZipFile(std::string fileName, std::int32_t mode);
    ~Tarvik_ZipFile();
    Tarvik_ZipFile(const Tarvik_ZipFile&) = delete;
    Tarvik_ZipFile& operator=(const Tarvik_ZipFile&) = delete;

    // A new entry dated now, at `compressionLevel` (0 stores, any other level deflates).
    std::unique_ptr<Tarvik_ZipWriteStream> writeFileInZipWithName(const std::string& name,
                                                                  std::int32_t compressionLevel);
    std::unique_ptr<Tarvik_ZipWriteStream> writeFileInZipWithName(const std::string& name,
                                                                  Date fileDate,
                                                                  std::int32_t compressionLevel);
    // An encrypted entry; `crc32` is the CRC-32 of all the plain data that will be written.
    std::unique_ptr<Tarvik_ZipWriteStream> writeFileInZipWithName(const std::string& name,
                                                                  Date fileDate,
                                                                  std::int32_t compressionLevel,
                                                                  const std::string& password,
                                                                  std::uint64_t crc32);

    unsigned numFilesInZip();
    std::vector<Tarvik_FileInZipInfo> listFileInZipInfos();
    void goToFirstFileInZip();
    bool goToNextFileInZip();
    bool locateFileInZip(const std::string& fileNameInZip);
    Tarvik_FileInZipInfo currentFileInZipInfo();
    std::unique_ptr<Tarvik_ZipReadStream> readCurrentFileInZip();
    // An entry without encryption is read as it is, whatever the password. For an encrypted
    // one, a password that fails the header's check throws "Error in opening current file in
    // '...'" with Tarvik_ZipErrorWrongPassword. One wrong password in 256 passes that check;
    // its data then fails to inflate (a reading error) or fails the CRC check when the stream
    // is finished, never reads as good data.
    std::unique_ptr<Tarvik_ZipReadStream> readCurrentFileInZipWithPassword(
        const std::string& password);

    void close();

    const std::string& fileName() const { return fileName_; }
    std::int32_t mode() const { return mode_; }
    // Entry name (NFD) -> (position in the central directory, file number); unzip mode only.
    const std::map<std::string, std::pair<std::int64_t, std::int64_t>>& contents() const {
        return contents_;
    }

  private:
    std::unique_ptr<Tarvik_ZipWriteStream> openNewEntry(const std::string& name, Date fileDate,
                                                        std::int32_t compressionLevel,
                                                        const std::string* password,
                                                        std::uint64_t crc32);
    std::unique_ptr<Tarvik_ZipReadStream> openCurrentEntry();
    std::unique_ptr<Tarvik_ZipReadStream> openEncryptedCurrentEntry(const std::string& password);
    Tarvik_ZipException openingCurrentFileFailed(std::int64_t error) const;
    void indexContents();
    void requireUnzipMode() const;
    // Reading an entry of an archive that has none fails as reading past the last one does.
    void requireAnEntry() const;
    void refuseUnzipMode() const;
    void closeQuietly() noexcept;

    std::string fileName_;
    std::int32_t mode_;
    void* unzFile_ = nullptr;
    void* zipFile_ = nullptr;
    // Opened for reading without minizip, which cannot open an archive that has no entries.
    bool withoutEntries_ = false;
    std::map<std::string, std::pair<std::int64_t, std::int64_t>> contents_;
};

}  // namespace tarvik
