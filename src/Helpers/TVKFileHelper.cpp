#include "Helpers/TVKFileHelper.h"

#include "Helpers/Tarvik_ZipFile.h"
#include "Platform/AtomicWrite.h"
#include "Platform/JsonValue.h"
#include "Platform/MimeTypes.h"
#include "Platform/PathUtilities.h"
#include "Platform/Utf8.h"
#include "Public/DebugConsole.h"

#include <fmt/format.h>
#include <tarvik/TarvikConstants.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace tarvik {

namespace fs = std::filesystem;

namespace {

constexpr size_t kChunkSize = 1024;

// A descriptor closed when it goes out of scope.
class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

  private:
    int fd_;
};

// Error text in console lines; "(null)" stands for no error, as the platform prints it.
std::string describe(const std::error_code& error) {
    return error ? error.message() : "(null)";
}

bool existsFollowingLinks(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
}

bool existsWithoutFollowingLinks(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

bool writeAll(int fd, const char* bytes, size_t length) {
    while (length > 0) {
        ssize_t n = ::write(fd, bytes, length);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        bytes += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

// Opens a regular file for reading. A folder, a file without read permission and any other
// kind of item are refused, so every reader fails on them as it does on a missing file.
// O_NONBLOCK keeps a named pipe from blocking the open until a writer appears.
FileDescriptor openRegularFileForReading(const std::string& path) {
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!fd || ::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return FileDescriptor(-1);
    }
    return fd;
}

Date toDate(const struct statx_timestamp& stamp) {
    return Date(std::chrono::duration_cast<Date::duration>(
        std::chrono::seconds(stamp.tv_sec) + std::chrono::nanoseconds(stamp.tv_nsec)));
}

bool readAll(int fd, std::string& text) {
    std::array<char, 65536> buffer{};
    for (;;) {
        ssize_t n = ::read(fd, buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return n == 0;
        }
        text.append(buffer.data(), static_cast<size_t>(n));
    }
}

std::string fileTypeName(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return "NSFileTypeRegular";
        case S_IFDIR:
            return "NSFileTypeDirectory";
        case S_IFLNK:
            return "NSFileTypeSymbolicLink";
        case S_IFCHR:
            return "NSFileTypeCharacterSpecial";
        case S_IFBLK:
            return "NSFileTypeBlockSpecial";
        case S_IFSOCK:
            return "NSFileTypeSocket";
        default:
            return "NSFileTypeUnknown";
    }
}

// Reads the file's first `length` bytes (its size when the copy began) in 1024-byte chunks,
// so that large files never have to fit in memory, and hands each chunk on. Reading stops at
// that length, so a file appended to itself (or one still growing) contributes exactly the
// bytes it had at the start; it also stops early when the file shrank or `consume` refuses.
template <class Consume>
void readInChunks(int fd, std::uint64_t length, Consume&& consume) {
    std::array<char, kChunkSize> buffer{};
    for (std::uint64_t offset = 0; offset < length; offset += kChunkSize) {
        auto wanted = static_cast<size_t>(std::min<std::uint64_t>(kChunkSize, length - offset));
        ssize_t n = ::pread(fd, buffer.data(), wanted, static_cast<off_t>(offset));
        if (n <= 0 || !consume(buffer.data(), static_cast<size_t>(n))) {
            return;
        }
    }
}

std::uint64_t sizeOf(int fd) {
    struct stat info {};
    return ::fstat(fd, &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
}

// Depth-first, each folder listed before its contents. A folder that cannot be read is
// reported and skipped; the rest of the tree is still listed.
void enumerate(const std::string& folder, const std::string& root,
               std::vector<std::string>& found) {
    std::error_code error;
    fs::directory_iterator it(folder, error);
    if (error) {
        logToConsoleIfDebug(
            fmt::format("Tarvik Error -- FAILED to get files in folder at path: {} \n {}", root,
                        describe(error)));
        return;
    }
    for (; it != fs::directory_iterator(); it.increment(error)) {
        std::string path = it->path().string();
        found.push_back(path);
        std::error_code typeError;
        if (it->is_directory(typeError) && !it->is_symlink(typeError)) {
            enumerate(path, root, found);
        }
    }
    if (error) {
        logToConsoleIfDebug(
            fmt::format("Tarvik Error -- FAILED to get files in folder at path: {} \n {}", root,
                        describe(error)));
    }
}

}  // namespace

void TVKFileHelper::createFileAtPath(const std::string& path) {
    createFileAtPath(path, std::nullopt, false);
}

void TVKFileHelper::createFileAtPath(const std::string& path, const Data& contents) {
    createFileAtPath(path, contents, false);
}

void TVKFileHelper::createDirectoryAtPath(const std::string& path) {
    createFileAtPath(path, std::nullopt, true);
}

void TVKFileHelper::createFileAtPath(const std::string& path, const std::optional<Data>& contents,
                                     bool isDirectory) {
    if (existsFollowingLinks(path)) {
        return;
    }
    if (isDirectory) {
        std::error_code error;
        fs::create_directories(path, error);
        if (error) {
            logToConsoleIfDebug(fmt::format("Tarvik Error -- FAILED to create DIRECTORY: {} \n {}",
                                            path, describe(error)));
        }
        return;
    }
    std::string_view bytes;
    if (contents) {
        bytes = std::string_view(reinterpret_cast<const char*>(contents->data()), contents->size());
    }
    if (!writeBytesAtomically(bytes, path)) {
        logToConsoleIfDebug(
            fmt::format("Tarvik Error -- FAILED to create FILE: {} \n {}", path, "(null)"));
    }
}

void TVKFileHelper::removeFileAtPath(const std::string& path) {
    if (!existsWithoutFollowingLinks(path)) {
        return;
    }
    std::error_code error;
    fs::remove_all(path, error);
    if (error) {
        logToConsoleIfDebug(
            fmt::format("Tarvik Error -- FAILED to remove file: {} \n {}", path, describe(error)));
    }
}

bool TVKFileHelper::copyFileFromPath(const std::string& sourcePath, const std::string& folderPath) {
    std::string destination = appendingPathComponent(folderPath, lastPathComponent(sourcePath));
    if (destination == sourcePath || destination.find(sourcePath) != std::string::npos) {
        return false;
    }
    removeFileAtPath(destination);
    // A folder is copied with everything in it; symbolic links are copied as links.
    std::error_code error;
    fs::copy(sourcePath, destination, fs::copy_options::recursive | fs::copy_options::copy_symlinks,
             error);
    if (error) {
        logToConsoleIfDebug(
            fmt::format("Tarvik Error -- FAILED to copy file: {} \n into folder : {} \n {}",
                        sourcePath, folderPath, describe(error)));
        return false;
    }
    return true;
}

void TVKFileHelper::moveFileFromPath(const std::string& sourcePath, const std::string& folderPath) {
    // A rename is all or nothing, so an app killed during the move leaves the folder whole in
    // one place or the other; copying, then removing, is left for moves a rename cannot do
    // (across file systems).
    std::string destination = appendingPathComponent(folderPath, lastPathComponent(sourcePath));
    if (destination != sourcePath && destination.find(sourcePath) == std::string::npos &&
        ::access(sourcePath.c_str(), F_OK) == 0) {
        removeFileAtPath(destination);
        if (::rename(sourcePath.c_str(), destination.c_str()) == 0) {
            return;
        }
    }
    if (copyFileFromPath(sourcePath, folderPath)) {
        removeFileAtPath(sourcePath);
    }
}

void TVKFileHelper::clearFileAtPath(const std::string& path) {
    FileDescriptor fd(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (fd) {
        [[maybe_unused]] int ignored = ::ftruncate(fd.get(), 0);
    }
}

std::optional<Dictionary> TVKFileHelper::attributesOfFileSystemForPath(const std::string& path) {
    struct statvfs info {};
    if (::statvfs(path.c_str(), &info) != 0) {
        std::error_code error(errno, std::generic_category());
        logToConsoleIfDebug(fmt::format(
            "Tarvik Error -- FAILED to get attributes of FILE SYSTEM for path: {} \n {}", path,
            describe(error)));
        return std::nullopt;
    }
    auto bytes = [&](std::uint64_t blocks) {
        return static_cast<std::int64_t>(blocks * static_cast<std::uint64_t>(info.f_frsize));
    };
    return Dictionary{
        {"NSFileSystemSize", bytes(info.f_blocks)},
        {"NSFileSystemFreeSize", bytes(info.f_bavail)},
        {"NSFileSystemNodes", static_cast<std::int64_t>(info.f_files)},
        {"NSFileSystemFreeNodes", static_cast<std::int64_t>(info.f_favail)},
    };
}

std::optional<Dictionary> TVKFileHelper::attributesOfItemAtPath(const std::string& path) {
    struct statx info {};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
                &info) != 0) {
        std::error_code error(errno, std::generic_category());
        logToConsoleIfDebug(
            fmt::format("Tarvik Error -- FAILED to get attributes of ITEM at path: {} \n {}", path,
                        describe(error)));
        return std::nullopt;
    }
    Date modified = toDate(info.stx_mtime);
    // File systems that keep no birth time give the modification time as the creation date.
    Date created = (info.stx_mask & STATX_BTIME) ? toDate(info.stx_btime) : modified;
    return Dictionary{
        {"NSFileSize", static_cast<std::int64_t>(info.stx_size)},
        {"NSFileType", fileTypeName(info.stx_mode)},
        {"NSFileCreationDate", created},
        {"NSFileModificationDate", modified},
        {"NSFilePosixPermissions", static_cast<std::int64_t>(info.stx_mode & 07777)},
        {"NSFileReferenceCount", static_cast<std::int64_t>(info.stx_nlink)},
    };
}

std::optional<Date> TVKFileHelper::creationDateOfFileAtPath(const std::string& path) {
    std::optional<Dictionary> attributes = attributesOfItemAtPath(path);
    if (!attributes) {
        return std::nullopt;
    }
    const Value& date = attributes->at("NSFileCreationDate");
    return *date.asDate();
}

std::uint64_t TVKFileHelper::sizeOfFileAtPath(const std::string& path) {
    std::optional<Dictionary> attributes = attributesOfItemAtPath(path);
    if (!attributes) {
        return 0;
    }
    return static_cast<std::uint64_t>(attributes->at("NSFileSize").integerValue());
}

bool TVKFileHelper::fileSizeTooBig(const std::string& fileURL) {
    FileDescriptor fd = openRegularFileForReading(fileURL);
    if (!fd) {
        logToConsoleIfDebug(
            fmt::format("Tarvik Error - FAILED to get filehandle for file at path : {}", fileURL));
        return true;
    }
    auto size = static_cast<std::uint64_t>(::lseek(fd.get(), 0, SEEK_END));
    std::uint64_t limit = TarvikFileSizeLimit;
    std::string extension = pathExtension(fileURL);
    if (shouldZipFileWithExtension(extension, mimeTypeForExtension(extension))) {
        limit *= 10;
    }
    if (size <= limit) {
        return false;
    }
    // The message names the base limit even when the tenfold one applied.
    logToConsoleIfDebug(fmt::format("{} is of size {}. Limit is {}", lastPathComponent(fileURL),
                                    size, TarvikFileSizeLimit));
    return true;
}

std::vector<std::string> TVKFileHelper::fileURLsInDirectoryAtPath(const std::string& path) {
    std::vector<std::string> found;
    enumerate(path, path, found);
    return found;
}

bool TVKFileHelper::zipFileAtPath(const std::string& sourcePath, const std::string& archivePath) {
    FileDescriptor source = openRegularFileForReading(sourcePath);
    if (!source) {
        logToConsoleIfDebug(
            fmt::format("Tarvik Error -- Nil fileReader, FAILED to zip file: {}", sourcePath));
        return false;
    }
    // Creating the archive empties the file at its path first: when that is the source itself
    // (under any name for it), the source would be lost.
    struct stat sourceStatus {};
    struct stat archiveStatus {};
    if (::fstat(source.get(), &sourceStatus) == 0 &&
        ::stat(archivePath.c_str(), &archiveStatus) == 0 &&
        sourceStatus.st_dev == archiveStatus.st_dev &&
        sourceStatus.st_ino == archiveStatus.st_ino) {
        throw Tarvik_ZipException(fmt::format("Can't zip '{}' into itself", sourcePath));
    }
    Tarvik_ZipFile archive(archivePath, Tarvik_ZipFileModeCreate);
    std::unique_ptr<Tarvik_ZipWriteStream> entry =
        archive.writeFileInZipWithName(lastPathComponent(sourcePath), 9);
    readInChunks(source.get(), sizeOf(source.get()), [&](const char* bytes, size_t length) {
        entry->writeBytes(bytes, static_cast<std::uint32_t>(length));
        return true;
    });
    entry->finishedWriting();
    archive.close();
    return true;
}

std::optional<std::string> TVKFileHelper::stringWithContentsOfFileAtPath(const std::string& path) {
    // Content that is not valid UTF-8 is refused as a whole, never passed on with its bad
    // bytes replaced: the caller gets none, as for a file it cannot read.
    FileDescriptor fd = openRegularFileForReading(path);
    std::string text;
    if (!fd || !readAll(fd.get(), text) || !isValidUtf8(text)) {
        logToConsoleIfDebug(
            fmt::format("Tarvik Error -- FAILED to read into string file at path : {}", path));
        return std::nullopt;
    }
    return text;
}

bool TVKFileHelper::writeString(const std::string& string, const std::string& path) {
    if (writeBytesAtomically(string, path)) {
        return true;
    }
    logToConsoleIfDebug(
        fmt::format("Tarvik Error -- FAILED to write String {} \n to file: {} \n", string, path));
    return false;
}

bool TVKFileHelper::appendString(const std::string& string, const std::string& path) {
    // Whatever cannot be opened for writing is written afresh instead: a missing file is
    // created; a folder at the path cannot be replaced, so that gives false.
    FileDescriptor fd(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    if (!fd) {
        return writeString(string, path);
    }
    if (!writeAll(fd.get(), string.data(), string.size())) {
        logToConsoleIfDebug(fmt::format(
            "Tarvik Error -- FAILED to Append String {} \n to file: {} \n", string, path));
        return false;
    }
    return true;
}

bool TVKFileHelper::appendFileAtPath(const std::string& sourcePath, const std::string& targetPath) {
    FileDescriptor source = openRegularFileForReading(sourcePath);
    if (!source) {
        logToConsoleIfDebug(fmt::format(
            "Tarvik Error -- Nil fileReader, FAILED to attach data to file: {}", sourcePath));
        return false;
    }
    // No target: the bytes go nowhere and the append still counts as done. O_APPEND puts every
    // write at the end of the file, however it grew in between.
    FileDescriptor target(::open(targetPath.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    if (target) {
        readInChunks(source.get(), sizeOf(source.get()), [&](const char* bytes, size_t length) {
            return writeAll(target.get(), bytes, length);
        });
    }
    return true;
}

void TVKFileHelper::writeDictionary(const Dictionary& dictionary, const std::string& path) {
    // A dictionary JSON cannot carry (dates, data, non-finite numbers) leaves the file as it was.
    std::optional<std::string> text = json::compactText(Value(dictionary));
    std::error_code error;
    if (!text) {
        error = std::make_error_code(std::errc::invalid_argument);
    } else {
        FileDescriptor fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (!fd || !writeAll(fd.get(), text->data(), text->size())) {
            error = std::error_code(errno, std::generic_category());
        }
    }
    if (error) {
        logToConsoleIfDebug(fmt::format(
            "Tarvik Error -- FAILED to write dictionary to file: {} \n {}", path, describe(error)));
    }
}

bool TVKFileHelper::shouldZipFileWithExtension(const std::string& extension,
                                               const std::optional<std::string>& contentType) {
    if (contentType && contentType->find("text") != std::string::npos) {
        return true;
    }
    return extension.find("plist") != std::string::npos ||
           extension.find("json") != std::string::npos ||
           extension.find("xml") != std::string::npos;
}

}  // namespace tarvik
