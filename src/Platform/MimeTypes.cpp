#include "Platform/MimeTypes.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace tarvik {

std::optional<std::string> mimeTypeForExtension(const std::string& extension) {
    // A fixed table rather than the machine's own, so that the same file is described the same
    // way on every machine. Never destroyed: a sending thread may still read it while the
    // process exits.
    static const auto& kTypes = *new const std::map<std::string, std::string>{
        {"txt", "text/plain"},
        {"text", "text/plain"},
        {"log", "text/plain"},
        {"md", "text/markdown"},
        {"csv", "text/csv"},
        {"tsv", "text/tab-separated-values"},
        {"html", "text/html"},
        {"htm", "text/html"},
        {"css", "text/css"},
        {"js", "text/javascript"},
        {"rtf", "text/rtf"},
        {"xml", "application/xml"},
        {"json", "application/json"},
        {"plist", "application/x-plist"},
        {"yaml", "application/yaml"},
        {"yml", "application/yaml"},
        {"pdf", "application/pdf"},
        {"zip", "application/zip"},
        {"gz", "application/gzip"},
        {"tar", "application/x-tar"},
        {"sqlite", "application/vnd.sqlite3"},
        {"db", "application/octet-stream"},
        {"bin", "application/octet-stream"},
        {"png", "image/png"},
        {"jpg", "image/jpeg"},
        {"jpeg", "image/jpeg"},
        {"gif", "image/gif"},
        {"heic", "image/heic"},
        {"webp", "image/webp"},
        {"bmp", "image/bmp"},
        {"tif", "image/tiff"},
        {"tiff", "image/tiff"},
        {"svg", "image/svg+xml"},
        {"ico", "image/vnd.microsoft.icon"},
        {"mp3", "audio/mpeg"},
        {"m4a", "audio/mp4"},
        {"wav", "audio/wav"},
        {"aac", "audio/aac"},
        {"mp4", "video/mp4"},
        {"mov", "video/quicktime"},
        {"m4v", "video/x-m4v"},
        {"webm", "video/webm"},
    };
    std::string key = extension;
    std::transform(key.begin(), key.end(), key.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    auto it = kTypes.find(key);
    if (it == kTypes.end()) {
        return std::nullopt;
    }
    return it->second;
}

}  // namespace tarvik
