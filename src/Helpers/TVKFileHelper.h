#pragma once

#include <tarvik/Value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarvik {

// All of the SDK's file-system work. Nothing here throws: failures give false or none (or pass
// silently where there is no result) and, in debug mode only, print one console line.
class TVKFileHelper {
  public:
    // Creating does nothing when anything already exists at the path. Folders are created
    // with their intermediate folders; files are not.
    static void createFileAtPath(const std::string& path);
    static void createFileAtPath(const std::string& path, const Data& contents);
    static void createDirectoryAtPath(const std::string& path);
    static void createFileAtPath(const std::string& path, const std::optional<Data>& contents,
                                 bool isDirectory);

    // Removes a file, or a folder with everything in it.
    static void removeFileAtPath(const std::string& path);
    // Copies the file (or folder) into the folder under its own name, replacing what is there.
    // Refuses to copy a file onto itself or into a folder inside itself.
    static bool copyFileFromPath(const std::string& sourcePath, const std::string& folderPath);
    // Copies as above, then removes the source only if the copy succeeded.
    static void moveFileFromPath(const std::string& sourcePath, const std::string& folderPath);
    // Truncates an existing file to length 0.
    static void clearFileAtPath(const std::string& path);

    // "NSFileSystemSize", "NSFileSystemFreeSize", "NSFileSystemNodes", "NSFileSystemFreeNodes".
    static std::optional<Dictionary> attributesOfFileSystemForPath(const std::string& path);
    // "NSFileSize", "NSFileType", "NSFileCreationDate", "NSFileModificationDate",
    // "NSFilePosixPermissions", "NSFileReferenceCount"; a symbolic link is not followed.
    static std::optional<Dictionary> attributesOfItemAtPath(const std::string& path);
    static std::optional<Date> creationDateOfFileAtPath(const std::string& path);
    static std::uint64_t sizeOfFileAtPath(const std::string& path);

    // True when the file must not be uploaded: it cannot be read, or it is larger than
    // 102400 bytes (1024000 for files that compress well).
    static bool fileSizeTooBig(const std::string& fileURL);
    // Every file and folder below the folder, sub-folders descended, hidden files included.
    static std::vector<std::string> fileURLsInDirectoryAtPath(const std::string& path);
    // Packs one file into a new archive at compression level 9.
    static bool zipFileAtPath(const std::string& sourcePath, const std::string& archivePath);

    // None when the path is not a readable file or its content is not valid UTF-8.
    static std::optional<std::string> stringWithContentsOfFileAtPath(const std::string& path);
    // Replaces the file atomically: a reader sees the old contents or the new, never a mix.
    static bool writeString(const std::string& string, const std::string& path);
    // Adds to the end of the file; a file that cannot be opened is written afresh instead.
    static bool appendString(const std::string& string, const std::string& path);
    // Appends the source's bytes to an existing target, 1024 bytes at a time. A missing target
    // receives nothing and still gives true; a source that is not a readable file gives false.
    static bool appendFileAtPath(const std::string& sourcePath, const std::string& targetPath);
    // Writes the dictionary as compact JSON, replacing the file.
    static void writeDictionary(const Dictionary& dictionary, const std::string& path);

    // Whether a file is text-like and so worth zipping before upload.
    static bool shouldZipFileWithExtension(const std::string& extension,
                                           const std::optional<std::string>& contentType);
};

}  // namespace tarvik
