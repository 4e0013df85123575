#pragma once

#include "Platform/DeviceProbes.h"
#include "Platform/Linux/MemoryPressureWatcher.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace tarvik {

// The device probes of a Linux machine, read from the kernel's files and the environment at
// the moment of asking:
//   memory            /proc/meminfo: free = MemAvailable (MemFree on kernels without it),
//                     used = MemTotal - free, so that used + free is the machine's total
//   resident size     /proc/self/statm, resident pages times the page size
//   hardware, OS      uname(): the machine ("x86_64"), and "<sysname> <release>"
//   locale            LC_ALL, else LC_MESSAGES, else LANG: "en_US.UTF-8" is language "en" and
//                     country "US"; "C", "POSIX" or nothing set is no locale
//   Wi-Fi             the SSID of the first interface in /proc/net/wireless that has one,
//                     asked through the wireless extensions (no network traffic)
//   carrier           none; location only what the host supplied
//   battery           the first "Battery" in /sys/class/power_supply (by name), while
//                     monitoring is on
//   vendor identifier a name-based UUID (version 5) of the bundle identifier in the namespace
//                     of /etc/machine-id: the same application on the same machine always gets
//                     the same one, another application another
//   name              the host name
// A desktop counts as a simulator: it skips the jailbreak test.
class LinuxDeviceProbes : public DeviceProbes {
  public:
    // Where the kernel's information is read; tests point these at trees of their own.
    struct SystemFiles {
        std::string powerSupplyFolder = "/sys/class/power_supply";
        std::string machineIdFile = "/etc/machine-id";
        std::string memoryPressureFile = "/proc/pressure/memory";
    };

    explicit LinuxDeviceProbes(std::function<std::optional<std::string>()> bundleIdentifier);
    LinuxDeviceProbes(std::function<std::optional<std::string>()> bundleIdentifier,
                      SystemFiles files);

    std::optional<MemoryStatistics> memoryStatistics() const override;
    std::optional<std::uint64_t> residentSize() const override;
    std::string hardwareMachine() const override;
    std::optional<std::string> operatingSystemVersionString() const override;
    std::optional<std::string> localeCountryCode() const override;
    std::optional<std::string> localeLanguageCode() const override;
    std::optional<std::string> wifiNetworkName() const override;
    std::optional<std::string> carrierName() const override { return std::nullopt; }
    std::optional<LocationCoordinate> lastKnownLocation() const override;
    void setUserLocation(LocationCoordinate coordinate) override;
    void setBatteryMonitoringEnabled(bool enabled) override { batteryMonitoring_.store(enabled); }
    BatteryStatus batteryStatus() const override;
    std::string identifierForVendor() const override;
    std::string deviceName() const override;
    std::int64_t statusBarOrientation() const override { return 1; }
    bool isSimulator() const override { return true; }
    std::string fileSystemRoot() const override { return ""; }
    void watchMemoryPressure(std::function<void()> onPressure) override;

    bool isWatchingMemoryPressure() const { return pressureWatcher_.isWatching(); }
    // Ends the pressure thread; the platform calls it when it shuts down.
    void stopWatchingMemoryPressure() { pressureWatcher_.stop(); }

  private:
    const std::function<std::optional<std::string>()> bundleIdentifier_;
    const SystemFiles files_;
    std::atomic<bool> batteryMonitoring_{false};
    mutable std::mutex locationMutex_;
    std::optional<LocationCoordinate> userLocation_;
    MemoryPressureWatcher pressureWatcher_;
};

}  // namespace tarvik
