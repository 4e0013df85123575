#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tarvik {

// A latitude and longitude in degrees.
struct LocationCoordinate {
    double latitude = -180.0;
    double longitude = -180.0;
};
// The coordinate that stands for "no location".
inline constexpr LocationCoordinate kLocationCoordinateInvalid{-180.0, -180.0};
inline bool isValidCoordinate(LocationCoordinate c) {
    return c.latitude >= -90.0 && c.latitude <= 90.0 && c.longitude >= -180.0 &&
           c.longitude <= 180.0;
}

enum class BatteryState : std::int64_t { Unknown = 0, Unplugged = 1, Charging = 2, Full = 3 };
struct BatteryStatus {
    double level = -1.0;  // 0.0 to 1.0; -1 when unknown
    BatteryState state = BatteryState::Unknown;
};

// What the device tells about itself, answered at the moment of asking. Units are bytes and
// degrees; an answer the platform does not have is none (or the documented empty value).
class DeviceProbes {
  public:
    struct MemoryStatistics {
        std::int64_t freeBytes = 0;
        std::int64_t usedBytes = 0;
    };

    virtual ~DeviceProbes() = default;

    // Free and used physical memory; none when the statistics cannot be read.
    virtual std::optional<MemoryStatistics> memoryStatistics() const = 0;
    // Resident size of this process; none when it cannot be read.
    virtual std::optional<std::uint64_t> residentSize() const = 0;
    // The machine identifier (hardware model).
    virtual std::string hardwareMachine() const = 0;
    virtual std::optional<std::string> operatingSystemVersionString() const = 0;
    // The current locale's country and language codes.
    virtual std::optional<std::string> localeCountryCode() const = 0;
    virtual std::optional<std::string> localeLanguageCode() const = 0;
    virtual std::optional<std::string> wifiNetworkName() const = 0;
    virtual std::optional<std::string> carrierName() const = 0;
    // The last location the system holds, only when the app may use it.
    virtual std::optional<LocationCoordinate> lastKnownLocation() const = 0;
    // A location the host application supplies, on platforms without a location service of
    // their own; from then on it is the last known location.
    virtual void setUserLocation(LocationCoordinate coordinate) = 0;
    virtual void setBatteryMonitoringEnabled(bool enabled) = 0;
    virtual BatteryStatus batteryStatus() const = 0;
    // A stable identifier of this device for this application's vendor, upper-case UUID text.
    virtual std::string identifierForVendor() const = 0;
    // The device's user-visible name.
    virtual std::string deviceName() const = 0;
    // The interface orientation number of the status bar (1 portrait).
    virtual std::int64_t statusBarOrientation() const = 0;
    // A simulator (and a desktop) skips the jailbreak test.
    virtual bool isSimulator() const = 0;
    // Prefix for the absolute paths the jailbreak test looks at ("" on a real system).
    virtual std::string fileSystemRoot() const = 0;
    // Calls `onPressure` (on any thread) whenever the system reports memory pressure.
    virtual void watchMemoryPressure(std::function<void()> onPressure) = 0;
};

}  // namespace tarvik
