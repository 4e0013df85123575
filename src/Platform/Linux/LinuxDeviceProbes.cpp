#include "Platform/Linux/LinuxDeviceProbes.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include <linux/wireless.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <climits>

namespace tarvik {

namespace {

std::string trimmed(const std::string& text) {
    const char* blanks = " \t\r\n";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The first line of a small text file, without surrounding blanks; none when unreadable.
std::optional<std::string> firstLineOf(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    if (!in || !std::getline(in, line)) {
        return std::nullopt;
    }
    return trimmed(line);
}

// The values of /proc/meminfo in bytes, by name.
std::optional<std::int64_t> meminfoBytes(const std::string& meminfo, const std::string& name) {
    std::istringstream in(meminfo);
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, name.size() + 1, name + ":") != 0) {
            continue;
        }
        std::istringstream fields(line.substr(name.size() + 1));
        std::int64_t kibibytes = 0;
        if (fields >> kibibytes) {
            return kibibytes * 1024;
        }
    }
    return std::nullopt;
}

struct LocaleParts {
    std::optional<std::string> language;
    std::optional<std::string> country;
};

// "language_COUNTRY.codeset@modifier", taken from the first locale variable that is set.
LocaleParts currentLocale() {
    const char* name = nullptr;
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value && *value) {
            name = value;
            break;
        }
    }
    if (!name) {
        return {};
    }
    std::string locale(name);
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX") {
        return {};
    }
    LocaleParts parts;
    size_t separator = locale.find('_');
    std::string language = locale.substr(0, separator);
    if (!language.empty()) {
        parts.language = language;
    }
    if (separator != std::string::npos && separator + 1 < locale.size()) {
        parts.country = locale.substr(separator + 1);
    }
    return parts;
}

std::vector<std::string> wirelessInterfaces() {
    std::ifstream in("/proc/net/wireless");
    std::vector<std::string> names;
    std::string line;
    // Two header lines, then one line per interface: "  wlan0: 0000   54.  -56. ...".
    for (int header = 0; header < 2 && std::getline(in, line); ++header) {
    }
    while (std::getline(in, line)) {
        size_t colon = line.find(':');
        if (colon != std::string::npos) {
            names.push_back(trimmed(line.substr(0, colon)));
        }
    }
    return names;
}

std::optional<std::string> ssidOf(int socketFd, const std::string& interface) {
    iwreq request{};
    std::strncpy(request.ifr_name, interface.c_str(), IFNAMSIZ - 1);
    char essid[IW_ESSID_MAX_SIZE + 1] = {};
    request.u.essid.pointer = essid;
    request.u.essid.length = sizeof essid;
    if (::ioctl(socketFd, SIOCGIWESSID, &request) != 0 || request.u.essid.length == 0) {
        return std::nullopt;
    }
    size_t length = std::min<size_t>(request.u.essid.length, IW_ESSID_MAX_SIZE);
    return std::string(essid, length);
}

BatteryState batteryStateFromStatus(const std::string& status) {
    if (status == "Charging") {
        return BatteryState::Charging;
    }
    if (status == "Full") {
        return BatteryState::Full;
    }
    if (status == "Discharging" || status == "Not charging") {
        return BatteryState::Unplugged;
    }
    return BatteryState::Unknown;
}

using UuidBytes = std::array<unsigned char, 16>;

// 32 hexadecimal digits, as /etc/machine-id holds them; none for anything else.
std::optional<UuidBytes> bytesFromHex(const std::string& hex) {
    if (hex.size() != 32) {
        return std::nullopt;
    }
    UuidBytes bytes{};
    for (size_t i = 0; i < bytes.size(); ++i) {
        char pair[3] = {hex[2 * i], hex[2 * i + 1], 0};
        char* end = nullptr;
        unsigned long value = std::strtoul(pair, &end, 16);
        if (end != pair + 2) {
            return std::nullopt;
        }
        bytes[i] = static_cast<unsigned char>(value);
    }
    return bytes;
}

// A version 5 UUID: SHA-1 of the namespace's bytes followed by the name (RFC 4122, 4.3).
UuidBytes nameBasedUuid(const UuidBytes& space, const std::string& name) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_sha1(), nullptr);
    EVP_DigestUpdate(context, space.data(), space.size());
    EVP_DigestUpdate(context, name.data(), name.size());
    EVP_DigestFinal_ex(context, digest, &digestLength);
    EVP_MD_CTX_free(context);
    UuidBytes uuid{};
    std::copy_n(digest, uuid.size(), uuid.begin());
    uuid[6] = static_cast<unsigned char>((uuid[6] & 0x0F) | 0x50);
    uuid[8] = static_cast<unsigned char>((uuid[8] & 0x3F) | 0x80);
    return uuid;
}

std::string uuidText(const UuidBytes& uuid) {
    static const char* digits = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < uuid.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += digits[uuid[i] >> 4];
        text += digits[uuid[i] & 0x0F];
    }
    return text;
}

}  // namespace

LinuxDeviceProbes::LinuxDeviceProbes(std::function<std::optional<std::string>()> bundleIdentifier)
    : LinuxDeviceProbes(std::move(bundleIdentifier), SystemFiles{}) {}

LinuxDeviceProbes::LinuxDeviceProbes(std::function<std::optional<std::string>()> bundleIdentifier,
                                     SystemFiles files)
    : bundleIdentifier_(std::move(bundleIdentifier)),
      files_(std::move(files)),
      pressureWatcher_(files_.memoryPressureFile) {}

std::optional<DeviceProbes::MemoryStatistics> LinuxDeviceProbes::memoryStatistics() const {
    std::ifstream in("/proc/meminfo");
    std::string meminfo((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::optional<std::int64_t> total = meminfoBytes(meminfo, "MemTotal");
    // MemAvailable counts the caches the kernel would give back; MemFree alone would make a
    // long-running machine look full.
    std::optional<std::int64_t> free = meminfoBytes(meminfo, "MemAvailable");
    if (!free) {
        free = meminfoBytes(meminfo, "MemFree");
    }
    if (!total || !free) {
        return std::nullopt;
    }
    return MemoryStatistics{*free, *total - *free};
}

std::optional<std::uint64_t> LinuxDeviceProbes::residentSize() const {
    std::ifstream in("/proc/self/statm");
    std::uint64_t sizePages = 0;
    std::uint64_t residentPages = 0;
    if (!(in >> sizePages >> residentPages)) {
        return std::nullopt;
    }
    return residentPages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::string LinuxDeviceProbes::hardwareMachine() const {
    utsname names{};
    ::uname(&names);
    return names.machine;
}

std::optional<std::string> LinuxDeviceProbes::operatingSystemVersionString() const {
    utsname names{};
    if (::uname(&names) != 0) {
        return std::nullopt;
    }
    return std::string(names.sysname) + " " + names.release;
}

std::optional<std::string> LinuxDeviceProbes::localeCountryCode() const {
    return currentLocale().country;
}

std::optional<std::string> LinuxDeviceProbes::localeLanguageCode() const {
    return currentLocale().language;
}

std::optional<std::string> LinuxDeviceProbes::wifiNetworkName() const {
    std::vector<std::string> interfaces = wirelessInterfaces();
    if (interfaces.empty()) {
        return std::nullopt;
    }
    // Any socket carries the wireless-extension requests; nothing is sent through it.
    int socketFd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socketFd < 0) {
        return std::nullopt;
    }
    std::optional<std::string> ssid;
    for (const std::string& interface : interfaces) {
        if ((ssid = ssidOf(socketFd, interface))) {
            break;
        }
    }
    ::close(socketFd);
    return ssid;
}

std::optional<LocationCoordinate> LinuxDeviceProbes::lastKnownLocation() const {
    std::lock_guard lock(locationMutex_);
    return userLocation_;
}

void LinuxDeviceProbes::setUserLocation(LocationCoordinate coordinate) {
    std::lock_guard lock(locationMutex_);
    userLocation_ = coordinate;
}

BatteryStatus LinuxDeviceProbes::batteryStatus() const {
    if (!batteryMonitoring_.load()) {
        return {};
    }
    std::error_code error;
    std::vector<std::filesystem::path> supplies;
    for (const auto& entry : std::filesystem::directory_iterator(files_.powerSupplyFolder, error)) {
        supplies.push_back(entry.path());
    }
    std::sort(supplies.begin(), supplies.end());
    for (const auto& supply : supplies) {
        if (firstLineOf(supply / "type") != "Battery") {
            continue;
        }
        BatteryStatus status;
        if (std::optional<std::string> capacity = firstLineOf(supply / "capacity")) {
            char* end = nullptr;
            long percent = std::strtol(capacity->c_str(), &end, 10);
            if (end != capacity->c_str() && *end == '\0') {
                status.level = std::clamp(percent, 0L, 100L) / 100.0;
            }
        }
        status.state = batteryStateFromStatus(firstLineOf(supply / "status").value_or(""));
        return status;
    }
    return {};
}

std::string LinuxDeviceProbes::identifierForVendor() const {
    // Without a machine identifier the nil UUID is the namespace: still stable per application.
    UuidBytes space =
        bytesFromHex(firstLineOf(files_.machineIdFile).value_or("")).value_or(UuidBytes{});
    return uuidText(nameBasedUuid(space, bundleIdentifier_().value_or("")));
}

std::string LinuxDeviceProbes::deviceName() const {
    char name[HOST_NAME_MAX + 1] = {};
    if (::gethostname(name, sizeof name - 1) != 0) {
        return "";
    }
    return name;
}

void LinuxDeviceProbes::watchMemoryPressure(std::function<void()> onPressure) {
    pressureWatcher_.start(std::move(onPressure));
}

}  // namespace tarvik
