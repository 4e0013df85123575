#include "Platform/Linux/IioAccelerometer.h"

#include <cstdlib>

namespace tarvik {

std::string IioAccelerometer::sysfsRootFromEnvironment() {
    const char* root = std::getenv("TARVIK_SYSFS_ROOT");
    return root && *root ? root : "/sys";
}

IioAccelerometer::IioAccelerometer(std::string sysfsRoot) : sysfsRoot_(std::move(sysfsRoot)) {}

// The reader lands next; until then the device has no accelerometer.
bool IioAccelerometer::isAvailable() {
    return false;
}

std::optional<Acceleration> IioAccelerometer::read() {
    return std::nullopt;
}

}  // namespace tarvik
