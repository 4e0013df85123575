#include "Platform/PathUtilities.h"

namespace tarvik {

namespace {
std::string withoutTrailingSlashes(const std::string& path) {
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') {
        trimmed.pop_back();
    }
    return trimmed;
}
}  // namespace

std::string lastPathComponent(const std::string& path) {
    std::string trimmed = withoutTrailingSlashes(path);
    if (trimmed == "/") {
        return trimmed;
    }
    auto slash = trimmed.rfind('/');
    return slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
}

std::string pathExtension(const std::string& path) {
    std::string name = lastPathComponent(path);
    auto dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) {
        return "";
    }
    return name.substr(dot + 1);
}

std::string appendingPathComponent(const std::string& path, const std::string& component) {
    if (path.empty()) {
        return component;
    }
    std::string base = withoutTrailingSlashes(path);
    return base == "/" ? "/" + component : base + "/" + component;
}

std::string deletingLastPathComponent(const std::string& path) {
    std::string trimmed = withoutTrailingSlashes(path);
    auto slash = trimmed.rfind('/');
    if (slash == std::string::npos) {
        return "";
    }
    return slash == 0 ? "/" : trimmed.substr(0, slash);
}

}  // namespace tarvik
