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

// A zip archive over minizip. Every failure throws Tarvik_ZipException. Close it with `close`;
// an archive still open when destroyed is closed quietly, so that no handle leaks.
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
    // An encrypted entry; `crc32` is the CRC of the plain data.
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
                                                        const char* password, std::uint64_t crc32);
    std::unique_ptr<Tarvik_ZipReadStream> openCurrentEntry(const char* password);
    void indexContents();
    void requireUnzipMode() const;
    void refuseUnzipMode() const;
    void closeQuietly() noexcept;

    std::string fileName_;
    std::int32_t mode_;
    void* unzFile_ = nullptr;
    void* zipFile_ = nullptr;
    std::map<std::string, std::pair<std::int64_t, std::int64_t>> contents_;
};

}  // namespace tarvik
