#include "Helpers/UIDevice+Tarvik.h"

#include "Helpers/TVKFileHelper.h"
#include "Helpers/TVKSettingsManager.h"
#include "Platform/Runtime.h"

#include <cstdio>

#include <sys/stat.h>

namespace tarvik {

namespace {

DeviceProbes& device() {
    return Runtime::current().platform().device();
}

// "NSFileSystemSize" and "NSFileSystemFreeSize" of the documents folder's file system.
struct DiskSpace {
    std::uint64_t total = 0;
    std::uint64_t free = 0;
};

std::optional<DiskSpace> documentsDiskSpace() {
    std::optional<Dictionary> attributes = TVKFileHelper::attributesOfFileSystemForPath(
        Runtime::current().folders().documentsDirectory());
    if (!attributes) {
        return std::nullopt;
    }
    auto number = [&](const char* key) -> std::uint64_t {
        auto it = attributes->find(key);
        const std::int64_t* value = it == attributes->end() ? nullptr : it->second.asInteger();
        return value ? static_cast<std::uint64_t>(*value) : 0;
    };
    return DiskSpace{number("NSFileSystemSize"), number("NSFileSystemFreeSize")};
}

}  // namespace

std::int64_t tarvik_memoryFree() {
    auto statistics = device().memoryStatistics();
    return statistics ? statistics->freeBytes : 0;
}

std::int64_t tarvik_memoryUsed() {
    auto statistics = device().memoryStatistics();
    return statistics ? statistics->usedBytes : 0;
}

std::uint64_t tarvik_diskUsed() {
    std::optional<DiskSpace> space = documentsDiskSpace();
    return space ? space->total - space->free : 0;
}

std::uint64_t tarvik_diskTotal() {
    std::optional<DiskSpace> space = documentsDiskSpace();
    return space ? space->total : 0;
}

bool tarvik_isJailbroken() {
    if (!TVKSettingsManager::hasCheckedForJailbrokenDevice()) {
        TVKSettingsManager::setJailbrokenDevice(tarvik_checkJailbroken());
    }
    return TVKSettingsManager::isJailbrokenDevice();
}

bool tarvik_checkJailbroken() {
    if (device().isSimulator()) {
        return false;
    }
    std::string root = device().fileSystemRoot();
    return jailbreak::anyKnownPathExists(root) || jailbreak::anyKnownFileOpens(root) ||
           jailbreak::canWriteOutsideSandbox(root);
}

namespace jailbreak {

bool anyKnownPathExists(const std::string& root) {
    for (const char* path :
         {"/Applications/Cydia.app", "/Library/MobileSubstrate/MobileSubstrate.dylib", "/bin/bash",
          "/usr/sbin/sshd", "/etc/apt", "/private/var/lib/apt/"}) {
        struct stat info {};
        if (::stat((root + path).c_str(), &info) == 0) {
            return true;
        }
    }
    return false;
}

bool anyKnownFileOpens(const std::string& root) {
    for (const char* path :
         {"/bin/bash", "/Applications/Cydia.app", "/Library/MobileSubstrate/MobileSubstrate.dylib",
          "/usr/sbin/sshd", "/etc/apt"}) {
        if (std::FILE* file = std::fopen((root + path).c_str(), "r")) {
            std::fclose(file);
            return true;
        }
    }
    return false;
}

bool canWriteOutsideSandbox(const std::string& root) {
    // A sandboxed application cannot write there; one that can has left its sandbox.
    std::string path = root + "/private/jailbreak.txt";
    bool written = TVKFileHelper::writeString("This is a test.", path);
    TVKFileHelper::removeFileAtPath(path);
    return written;
}

}  // namespace jailbreak

std::optional<std::string> tarvik_wifiNetworkName() {
    return device().wifiNetworkName();
}

std::optional<std::string> tarvik_carrierName() {
    return device().carrierName();
}

LocationCoordinate tarvik_userLocation() {
    return device().lastKnownLocation().value_or(kLocationCoordinateInvalid);
}

std::string tarvik_deviceRegion() {
    if (!device().localeLanguageCode()) {
        return "";
    }
    return device().localeCountryCode().value_or("");
}

std::string tarvik_deviceLanguage() {
    std::optional<std::string> language = device().localeLanguageCode();
    if (!language) {
        return "";
    }
    // A locale without a country is the language alone ("de"), never one with a dangling "_".
    std::string region = tarvik_deviceRegion();
    return region.empty() ? *language : *language + "_" + region;
}

std::string tarvik_hardwareName() {
    return device().hardwareMachine();
}

}  // namespace tarvik
