#include "Platform/FrameworkBundle.h"

#include "BuildInfo.h"

#include <cstdlib>

namespace tarvik {

Bundle makeFrameworkBundle(const std::string& resourcePath) {
    Dictionary info{
        {"CFBundleIdentifier", "com.tarvikhq.Tarvik"},
        {"CFBundleName", "Tarvik"},
        {"CFBundleExecutable", "Tarvik"},
        {"CFBundleShortVersionString", TARVIK_BUILD_VERSION},
        {"CFBundleVersion", TARVIK_BUILD_VERSION},
    };
    return Bundle(resourcePath, std::move(info), resourcePath);
}

std::string defaultResourcesDirectory() {
    const char* configured = std::getenv("TARVIK_RESOURCES_DIR");
    return configured && *configured ? configured : TARVIK_RESOURCES_DIR;
}

}  // namespace tarvik
