#include "Platform/Linux/IioAccelerometer.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace tarvik {

namespace {

constexpr double kStandardGravity = 9.80665;  // m/s² in one g
constexpr const char* kAxes[3] = {"x", "y", "z"};

bool exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

// A small attribute's text, read into the buffer with open, read and close; none when it cannot
// be read or does not fit. Sysfs hands an attribute over whole in one read, ending in a line
// break, so that read is the last one asked for.
std::optional<std::string_view> readAttribute(const std::string& path, char (&buffer)[256]) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    size_t length = 0;
    bool complete = false;
    while (!complete && length < sizeof buffer) {
        ssize_t got = ::read(fd, buffer + length, sizeof buffer - length);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            break;
        }
        length += static_cast<size_t>(got);
        complete = got == 0 || buffer[length - 1] == '\n';
    }
    ::close(fd);
    if (!complete) {
        return std::nullopt;
    }
    return std::string_view(buffer, length);
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The whole text as a number of type T, surrounding blanks aside; from_chars ignores the locale,
// which a host may have set to one that writes a decimal comma.
template <typename T>
std::optional<T> parsed(std::string_view text) {
    text = trimmed(text);
    T value{};
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    if constexpr (std::is_floating_point_v<T>) {
        if (!std::isfinite(value)) {
            return std::nullopt;
        }
    }
    return value;
}

template <typename T>
std::optional<T> readNumber(const std::string& path) {
    char buffer[256];
    auto text = readAttribute(path, buffer);
    return text ? parsed<T>(*text) : std::nullopt;
}

// An optional setting: untouched when the file is not there, false when it is but holds no
// number.
bool readOptionalNumber(const std::string& path, std::optional<double>& value) {
    if (!exists(path)) {
        return true;
    }
    value = readNumber<double>(path);
    return value.has_value();
}

// "a, b, c; d, e, f; g, h, i": three rows of three numbers. None when the text is anything else,
// or the matrix is singular (it would flatten the readings rather than turn them).
std::optional<std::array<std::array<double, 3>, 3>> parsedMatrix(std::string_view text) {
    std::array<std::array<double, 3>, 3> m{};
    text = trimmed(text);
    for (size_t row = 0; row < 3; ++row) {
        size_t rowEnd = row < 2 ? text.find(';') : text.size();
        if (rowEnd == std::string_view::npos) {
            return std::nullopt;
        }
        std::string_view cells = text.substr(0, rowEnd);
        text.remove_prefix(row < 2 ? rowEnd + 1 : rowEnd);
        for (size_t column = 0; column < 3; ++column) {
            size_t cellEnd = column < 2 ? cells.find(',') : cells.size();
            if (cellEnd == std::string_view::npos) {
                return std::nullopt;
            }
            auto value = parsed<double>(cells.substr(0, cellEnd));
            if (!value) {
                return std::nullopt;
            }
            m[row][column] = *value;
            cells.remove_prefix(column < 2 ? cellEnd + 1 : cellEnd);
        }
    }
    double determinant = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                         m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                         m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    if (std::abs(determinant) < 1e-6) {
        return std::nullopt;
    }
    return m;
}

}  // namespace

std::string IioAccelerometer::sysfsRootFromEnvironment() {
    const char* root = std::getenv("TARVIK_SYSFS_ROOT");
    return root && *root ? root : "/sys";
}

IioAccelerometer::IioAccelerometer(std::string sysfsRoot) : sysfsRoot_(std::move(sysfsRoot)) {}

bool IioAccelerometer::isAvailable() {
    std::lock_guard lock(mutex_);
    return readLocked().has_value();
}

std::optional<Acceleration> IioAccelerometer::read() {
    std::lock_guard lock(mutex_);
    return readLocked();
}

// The first device in name order with x and y, its scales and offsets readable. A scale or
// offset file that is there but unreadable rules the device out: guessing 1 or 0 in its place
// would give readings off by orders of magnitude, which shake detection would take for shakes.
std::optional<IioAccelerometer::Device> IioAccelerometer::findDevice(const std::string& root) {
    std::string devices = root + "/bus/iio/devices";
    DIR* folder = ::opendir(devices.c_str());
    if (!folder) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(folder)) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    ::closedir(folder);
    std::sort(names.begin(), names.end());

    for (const std::string& name : names) {
        Device device;
        device.folder = devices + "/" + name;
        std::string prefix = device.folder + "/in_accel_";
        for (size_t axis = 0; axis < 3; ++axis) {
            std::string raw = prefix + kAxes[axis] + "_raw";
            device.rawPaths[axis] = exists(raw) ? raw : "";
        }
        if (device.rawPaths[0].empty() || device.rawPaths[1].empty()) {
            continue;
        }
        std::optional<double> sharedScale, sharedOffset;
        bool readable = readOptionalNumber(prefix + "scale", sharedScale) &&
                        readOptionalNumber(prefix + "offset", sharedOffset);
        for (size_t axis = 0; axis < 3 && readable; ++axis) {
            std::optional<double> scale, offset;
            readable = readOptionalNumber(prefix + kAxes[axis] + "_scale", scale) &&
                       readOptionalNumber(prefix + kAxes[axis] + "_offset", offset);
            device.scales[axis] = scale.value_or(sharedScale.value_or(1));
            device.offsets[axis] = offset.value_or(sharedOffset.value_or(0));
        }
        if (!readable) {
            continue;
        }
        // A matrix that cannot be read or understood leaves the sensor's axes as they are: the
        // readings keep their size and only the axes they land on may be off, which matters
        // less to shake detection than having no accelerometer at all.
        char buffer[256];
        if (auto text = readAttribute(prefix + "mount_matrix", buffer)) {
            device.mountMatrix = parsedMatrix(*text).value_or(device.mountMatrix);
        }
        return device;
    }
    return std::nullopt;
}

std::optional<Acceleration> IioAccelerometer::readLocked() {
    if (!device_) {
        device_ = findDevice(sysfsRoot_);
        if (!device_) {
            return std::nullopt;
        }
    }
    std::array<double, 3> sensor{};  // m/s² along the sensor's axes
    for (size_t axis = 0; axis < 3; ++axis) {
        if (device_->rawPaths[axis].empty()) {
            continue;  // no z: 0
        }
        auto raw = readNumber<long long>(device_->rawPaths[axis]);
        if (!raw) {
            // A z that was there and fails fails the reading too: a 0 in its place would look
            // like a jolt of 1 g. A device whose folder has gone is looked for again next time.
            if (!exists(device_->folder)) {
                device_.reset();
            }
            return std::nullopt;
        }
        sensor[axis] = (static_cast<double>(*raw) + device_->offsets[axis]) * device_->scales[axis];
    }
    std::array<double, 3> g{};
    for (size_t row = 0; row < 3; ++row) {
        const auto& m = device_->mountMatrix[row];
        g[row] = (m[0] * sensor[0] + m[1] * sensor[1] + m[2] * sensor[2]) / kStandardGravity;
    }
    return Acceleration{g[0], g[1], g[2]};
}

}  // namespace tarvik
