#include "Helpers/Tarvik_ZipFile.h"

#include "Helpers/TVKZipCrypto.h"
#include "Helpers/TVKZipEntryDecrypter.h"
#include "Helpers/TVKZipEntryEncrypter.h"
#include "Platform/Runtime.h"
#include "Platform/Utf8.h"

#include <fmt/format.h>
#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>

namespace tarvik {

namespace {

constexpr size_t kNameBufferSize = 512;

// General-purpose flag bits.
constexpr uLong kEncryptedFlag = 1u << 0;
constexpr uLong kDataDescriptorFlag = 1u << 3;
constexpr uLong kUtf8NameFlag = 1u << 11;
// "Version made by": format 2.0 on a VFAT file system. unzip reads names from MS-DOS hosts (what
// minizip writes by default) as code page 437 even when they carry the UTF-8 flag, and takes
// the attributes of Unix hosts as permissions, so the SDK's zero attributes would extract files
// that nobody may read. It takes VFAT names as they are and VFAT attributes as MS-DOS ones.
constexpr uLong kVersionMadeBy = (14 << 8) | 20;

// An archive without entries is nothing but its end record (and the record's comment), at the
// very start of the file. minizip takes an end record found at offset 0 for none found, so it
// cannot open such an archive; this recognises one.
bool isArchiveWithoutEntries(const std::string& path) {
    constexpr std::size_t kEndRecordSize = 22;
    unsigned char record[kEndRecordSize];
    std::ifstream file(path, std::ios::binary);
    if (!file.read(reinterpret_cast<char*>(record), kEndRecordSize)) {
        return false;
    }
    auto field = [&](std::size_t offset, std::size_t size) {
        std::uint32_t value = 0;
        for (std::size_t i = size; i > 0; --i) {
            value = (value << 8) | record[offset + i - 1];
        }
        return value;
    };
    std::error_code error;
    std::uintmax_t fileSize = std::filesystem::file_size(path, error);
    // Signature; this disk and the directory's disk; entries on this disk and in all;
    // directory size and offset; then the comment, which must end the file.
    return !error && field(0, 4) == 0x06054b50 && field(4, 2) == 0 && field(6, 2) == 0 &&
           field(8, 2) == 0 && field(10, 2) == 0 && field(12, 4) == 0 && field(16, 4) == 0 &&
           fileSize == kEndRecordSize + field(20, 2);
}

Tarvik_ZipException unknownMode(std::int32_t mode) {
    return Tarvik_ZipException(fmt::format("Unknown mode {}", mode));
}

// minizip's date record holds local calendar components; it makes the DOS date from them.
zip_fileinfo entryInfoForDate(Date date) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    localtime_r(&seconds, &local);
    zip_fileinfo info{};
    info.tmz_date.tm_sec = static_cast<uInt>(local.tm_sec);
    info.tmz_date.tm_min = static_cast<uInt>(local.tm_min);
    info.tmz_date.tm_hour = static_cast<uInt>(local.tm_hour);
    info.tmz_date.tm_mday = static_cast<uInt>(local.tm_mday);
    info.tmz_date.tm_mon = static_cast<uInt>(local.tm_mon);
    info.tmz_date.tm_year = static_cast<uInt>(local.tm_year + 1900);
    return info;
}

Date dateOfEntry(const tm_unz& stored) {
    std::tm local{};
    local.tm_sec = static_cast<int>(stored.tm_sec);
    local.tm_min = static_cast<int>(stored.tm_min);
    local.tm_hour = static_cast<int>(stored.tm_hour);
    local.tm_mday = static_cast<int>(stored.tm_mday);
    local.tm_mon = static_cast<int>(stored.tm_mon);
    local.tm_year = static_cast<int>(stored.tm_year) - 1900;
    local.tm_isdst = -1;  // whatever daylight saving time was in force on that day
    return std::chrono::system_clock::from_time_t(std::mktime(&local));
}

// Zip headers do not record the level itself: deflated entries keep a hint of it in bits 1-2
// of the general-purpose flag.
std::int32_t levelOfEntry(const unz_file_info& info) {
    if (info.compression_method == 0) {
        return 0;
    }
    switch ((info.flag >> 1) & 3) {
        case 0:
            return -1;
        case 1:
            return 9;
        default:
            return 1;
    }
}

// Readers take names without the UTF-8 flag as code page 437. Names that are not valid UTF-8
// have no encoding to declare and keep their bytes unflagged.
uLong nameFlags(const std::string& name) {
    bool plainAscii = std::all_of(name.begin(), name.end(),
                                  [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    return !plainAscii && isValidUtf8(name) ? kUtf8NameFlag : 0;
}

// The byte that ends a decrypted encryption header. An entry whose CRC was only known after
// its data (one with a trailing data descriptor) is checked against its DOS time instead.
std::uint8_t checkByteOf(const unz_file_info& info) {
    if (info.flag & kDataDescriptorFlag) {
        return static_cast<std::uint8_t>(info.dosDate >> 8);  // the time is the low half
    }
    return static_cast<std::uint8_t>(info.crc >> 24);
}

struct CurrentEntry {
    std::string storedName;
    unz_file_info info;
};

CurrentEntry readCurrentEntry(unzFile handle, const std::string& archivePath) {
    char name[kNameBufferSize];
    unz_file_info info{};
    int result = unzGetCurrentFileInfo(handle, &info, name, sizeof name, nullptr, 0, nullptr, 0);
    if (result != UNZ_OK) {
        throw Tarvik_ZipException(
            result, fmt::format("Error in getting current file info in '{}'", archivePath));
    }
    // A name that fills the buffer is cut there and has no terminating zero.
    return {std::string(name, std::min<size_t>(info.size_filename, sizeof name)), info};
}

}  // namespace

Tarvik_ZipFile::Tarvik_ZipFile(std::string fileName, std::int32_t mode)
    : fileName_(std::move(fileName)), mode_(mode) {
    switch (mode_) {
        case Tarvik_ZipFileModeUnzip:
            unzFile_ = unzOpen(fileName_.c_str());
            withoutEntries_ = !unzFile_ && isArchiveWithoutEntries(fileName_);
            break;
        case Tarvik_ZipFileModeCreate:
            zipFile_ = zipOpen(fileName_.c_str(), APPEND_STATUS_CREATE);
            break;
        case Tarvik_ZipFileModeAppend:
            zipFile_ = zipOpen(fileName_.c_str(), APPEND_STATUS_ADDINZIP);
            break;
        default:
            throw unknownMode(mode_);
    }
    if (!unzFile_ && !zipFile_ && !withoutEntries_) {
        throw Tarvik_ZipException(fmt::format("Can't open '{}'", fileName_));
    }
    if (mode_ == Tarvik_ZipFileModeUnzip) {
        try {
            indexContents();
        } catch (...) {
            closeQuietly();  // the destructor does not run when a constructor throws
            throw;
        }
    }
}

Tarvik_ZipFile::~Tarvik_ZipFile() {
    closeQuietly();
}

void Tarvik_ZipFile::indexContents() {
    // An archive without entries has no first one, and its index stays empty.
    int result = unzGoToFirstFile(unzFile_);
    while (result == UNZ_OK) {
        Tarvik_FileInZipInfo info = currentFileInZipInfo();
        unz_file_pos position{};
        if (unzGetFilePos(unzFile_, &position) == UNZ_OK && !info.name().empty()) {
            contents_[info.name()] = {static_cast<std::int64_t>(position.pos_in_zip_directory),
                                      static_cast<std::int64_t>(position.num_of_file)};
        }
        // Stops at the end of the list, and also on a damaged directory rather than loop on it.
        result = unzGoToNextFile(unzFile_);
    }
}

std::unique_ptr<Tarvik_ZipWriteStream> Tarvik_ZipFile::writeFileInZipWithName(
    const std::string& name, std::int32_t compressionLevel) {
    return openNewEntry(name, Runtime::current().clock().now(), compressionLevel, nullptr, 0);
}

std::unique_ptr<Tarvik_ZipWriteStream> Tarvik_ZipFile::writeFileInZipWithName(
    const std::string& name, Date fileDate, std::int32_t compressionLevel) {
    return openNewEntry(name, fileDate, compressionLevel, nullptr, 0);
}

std::unique_ptr<Tarvik_ZipWriteStream> Tarvik_ZipFile::writeFileInZipWithName(
    const std::string& name, Date fileDate, std::int32_t compressionLevel,
    const std::string& password, std::uint64_t crc32) {
    return openNewEntry(name, fileDate, compressionLevel, &password, crc32);
}

std::unique_ptr<Tarvik_ZipWriteStream> Tarvik_ZipFile::openNewEntry(const std::string& name,
                                                                    Date fileDate,
                                                                    std::int32_t compressionLevel,
                                                                    const std::string* password,
                                                                    std::uint64_t crc32) {
    refuseUnzipMode();
    zip_fileinfo info = entryInfoForDate(fileDate);
    int method = compressionLevel != 0 ? Z_DEFLATED : 0;
    // zlib refuses levels outside its range, and minizip then leaks the entry's header: such a
    // level fails with zlib's own error without reaching minizip.
    if (compressionLevel < Z_DEFAULT_COMPRESSION || compressionLevel > Z_BEST_COMPRESSION) {
        throw Tarvik_ZipException(Z_STREAM_ERROR,
                                  fmt::format("Error in opening '{}' in zipfile", name));
    }
    // minizip's own encryption derives wrong keys on 64-bit systems, and its raw mode still
    // applies it when given a password. A password entry is therefore opened raw with no
    // password, flagged as encrypted, and the stream compresses and encrypts it itself.
    std::unique_ptr<TVKZipEntryEncrypter> encrypter;
    uLong flags = nameFlags(name);
    if (password) {
        encrypter = std::make_unique<TVKZipEntryEncrypter>(*password, compressionLevel,
                                                           static_cast<std::uint32_t>(crc32));
        flags |= kEncryptedFlag;
    }
    int raw = encrypter ? 1 : 0;
    int result = zipOpenNewFileInZip4(
        zipFile_, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, method, compressionLevel,
        raw, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0, kVersionMadeBy, flags);
    if (result != ZIP_OK) {
        throw Tarvik_ZipException(result, fmt::format("Error in opening '{}' in zipfile", name));
    }
    if (encrypter) {
        return std::make_unique<Tarvik_ZipWriteStream>(zipFile_, name, std::move(encrypter));
    }
    return std::make_unique<Tarvik_ZipWriteStream>(zipFile_, name);
}

unsigned Tarvik_ZipFile::numFilesInZip() {
    requireUnzipMode();
    if (withoutEntries_) {
        return 0;
    }
    unz_global_info info{};
    int result = unzGetGlobalInfo(unzFile_, &info);
    if (result != UNZ_OK) {
        throw Tarvik_ZipException(result,
                                  fmt::format("Error in getting global info in '{}'", fileName_));
    }
    return static_cast<unsigned>(info.number_entry);
}

std::vector<Tarvik_FileInZipInfo> Tarvik_ZipFile::listFileInZipInfos() {
    unsigned count = numFilesInZip();
    std::vector<Tarvik_FileInZipInfo> infos;
    if (count < 1) {
        return infos;
    }
    infos.reserve(count);
    goToFirstFileInZip();
    for (unsigned i = 0; i < count; ++i) {
        infos.push_back(currentFileInZipInfo());
        if (i + 1 < count) {
            goToNextFileInZip();
        }
    }
    return infos;
}

void Tarvik_ZipFile::goToFirstFileInZip() {
    requireUnzipMode();
    // The one failure that is only reported: an archive without entries has no first one.
    if (unzGoToFirstFile(unzFile_) != UNZ_OK) {
        Runtime::current().console().writeLine(
            fmt::format("Error in going to first file in zip in '{}'", fileName_));
    }
}

bool Tarvik_ZipFile::goToNextFileInZip() {
    requireUnzipMode();
    if (withoutEntries_) {
        return false;
    }
    int result = unzGoToNextFile(unzFile_);
    if (result == UNZ_END_OF_LIST_OF_FILE) {
        return false;
    }
    if (result != UNZ_OK) {
        throw Tarvik_ZipException(
            result, fmt::format("Error in going to next file in zip in '{}'", fileName_));
    }
    return true;
}

bool Tarvik_ZipFile::locateFileInZip(const std::string& fileNameInZip) {
    requireUnzipMode();
    auto found = contents_.find(decomposedUtf8(fileNameInZip));
    if (found == contents_.end()) {
        return false;
    }
    unz_file_pos position{static_cast<uLong>(found->second.first),
                          static_cast<uLong>(found->second.second)};
    int result = unzGoToFilePos(unzFile_, &position);
    if (result == UNZ_END_OF_LIST_OF_FILE) {
        return false;
    }
    if (result != UNZ_OK) {
        throw Tarvik_ZipException(
            result, fmt::format("Error in going to next file in zip in '{}'", fileName_));
    }
    return true;
}

Tarvik_FileInZipInfo Tarvik_ZipFile::currentFileInZipInfo() {
    requireUnzipMode();
    CurrentEntry entry = readCurrentEntry(unzFile_, fileName_);
    const unz_file_info& info = entry.info;
    return Tarvik_FileInZipInfo(decomposedUtf8(entry.storedName), info.uncompressed_size,
                                levelOfEntry(info), (info.flag & kEncryptedFlag) != 0,
                                info.compressed_size, dateOfEntry(info.tmu_date), info.crc);
}

std::unique_ptr<Tarvik_ZipReadStream> Tarvik_ZipFile::readCurrentFileInZip() {
    requireUnzipMode();
    requireAnEntry();
    return openCurrentEntry();
}

std::unique_ptr<Tarvik_ZipReadStream> Tarvik_ZipFile::readCurrentFileInZipWithPassword(
    const std::string& password) {
    requireUnzipMode();
    requireAnEntry();
    unz_file_info info{};
    int result = unzGetCurrentFileInfo(unzFile_, &info, nullptr, 0, nullptr, 0, nullptr, 0);
    if (result != UNZ_OK) {
        throw openingCurrentFileFailed(result);
    }
    return (info.flag & kEncryptedFlag) ? openEncryptedCurrentEntry(password) : openCurrentEntry();
}

Tarvik_ZipException Tarvik_ZipFile::openingCurrentFileFailed(std::int64_t error) const {
    return Tarvik_ZipException(error,
                               fmt::format("Error in opening current file in '{}'", fileName_));
}

std::unique_ptr<Tarvik_ZipReadStream> Tarvik_ZipFile::openCurrentEntry() {
    int result = unzOpenCurrentFile(unzFile_);
    if (result != UNZ_OK) {
        throw openingCurrentFileFailed(result);
    }
    try {
        return std::make_unique<Tarvik_ZipReadStream>(
            unzFile_, readCurrentEntry(unzFile_, fileName_).storedName);
    } catch (...) {
        unzCloseCurrentFile(unzFile_);
        throw;
    }
}

// minizip's decryption is compiled out of Debian's build, so the entry is opened raw: minizip
// hands over the stored bytes, encryption header first, and the stream decrypts and inflates
// them.
std::unique_ptr<Tarvik_ZipReadStream> Tarvik_ZipFile::openEncryptedCurrentEntry(
    const std::string& password) {
    CurrentEntry entry = readCurrentEntry(unzFile_, fileName_);
    const unz_file_info& info = entry.info;
    if (info.compression_method != 0 && info.compression_method != Z_DEFLATED) {
        throw openingCurrentFileFailed(UNZ_BADZIPFILE);
    }
    int result = unzOpenCurrentFile3(unzFile_, nullptr, nullptr, 1, nullptr);
    if (result != UNZ_OK) {
        throw openingCurrentFileFailed(result);
    }
    try {
        TVKZipCrypto::Header header{};
        int count = unzReadCurrentFile(unzFile_, header.data(), header.size());
        if (count != static_cast<int>(header.size())) {
            throw openingCurrentFileFailed(count < 0 ? count : UNZ_BADZIPFILE);
        }
        TVKZipCrypto cipher(password);
        if (!cipher.acceptsHeader(header, checkByteOf(info))) {
            throw openingCurrentFileFailed(Tarvik_ZipErrorWrongPassword);
        }
        return std::make_unique<Tarvik_ZipReadStream>(
            unzFile_, entry.storedName,
            std::make_unique<TVKZipEntryDecrypter>(cipher, info.compression_method == Z_DEFLATED,
                                                   info.uncompressed_size,
                                                   static_cast<std::uint32_t>(info.crc)));
    } catch (...) {
        unzCloseCurrentFile(unzFile_);
        throw;
    }
}

void Tarvik_ZipFile::close() {
    int result = 0;
    switch (mode_) {
        case Tarvik_ZipFileModeUnzip:
            // minizip never opened an archive without entries, so there is nothing to close.
            result = withoutEntries_ ? UNZ_OK : unzClose(unzFile_);
            unzFile_ = nullptr;
            withoutEntries_ = false;
            break;
        case Tarvik_ZipFileModeCreate:
        case Tarvik_ZipFileModeAppend:
            result = zipClose(zipFile_, nullptr);
            zipFile_ = nullptr;
            break;
        default:
            throw unknownMode(mode_);
    }
    if (result != 0) {
        throw Tarvik_ZipException(result, fmt::format("Error in closing '{}'", fileName_));
    }
}

void Tarvik_ZipFile::requireUnzipMode() const {
    if (mode_ != Tarvik_ZipFileModeUnzip) {
        throw Tarvik_ZipException("Operation not permitted without Unzip mode");
    }
}

void Tarvik_ZipFile::requireAnEntry() const {
    if (withoutEntries_) {
        throw openingCurrentFileFailed(UNZ_END_OF_LIST_OF_FILE);
    }
}

void Tarvik_ZipFile::refuseUnzipMode() const {
    if (mode_ == Tarvik_ZipFileModeUnzip) {
        throw Tarvik_ZipException("Operation not permitted with Unzip mode");
    }
}

void Tarvik_ZipFile::closeQuietly() noexcept {
    if (unzFile_) {
        unzClose(unzFile_);
        unzFile_ = nullptr;
    }
    if (zipFile_) {
        zipClose(zipFile_, nullptr);
        zipFile_ = nullptr;
    }
}

}  // namespace tarvik
