#pragma once

#include "Platform/DeviceProbes.h"

#include <mutex>

namespace tarvik::testing {

// Device probes whose every answer a test sets. The defaults describe a plausible desktop:
// 2 GiB free and 1 GiB used, 64 MiB resident, "x86_64" running "Linux 6.1.0", locale en_US, no
// Wi-Fi, carrier or location, a half-full unplugged battery, a fixed vendor identifier, named
// "Test Device", portrait, a simulator, with the real file system root.
class FakeDevice : public DeviceProbes {
  public:
    static constexpr const char* kDefaultIdentifierForVendor =
        "5A1B7C3E-92D4-4F6A-8B0C-1D2E3F405162";

    std::optional<MemoryStatistics> memoryStatistics() const override;
    std::optional<std::uint64_t> residentSize() const override;
    std::string hardwareMachine() const override;
    std::optional<std::string> operatingSystemVersionString() const override;
    std::optional<std::string> localeCountryCode() const override;
    std::optional<std::string> localeLanguageCode() const override;
    std::optional<std::string> wifiNetworkName() const override;
    std::optional<std::string> carrierName() const override;
    std::optional<LocationCoordinate> lastKnownLocation() const override;
    void setUserLocation(LocationCoordinate coordinate) override;
    void setBatteryMonitoringEnabled(bool enabled) override;
    BatteryStatus batteryStatus() const override;
    std::string identifierForVendor() const override;
    std::string deviceName() const override;
    std::int64_t statusBarOrientation() const override;
    bool isSimulator() const override;
    std::string fileSystemRoot() const override;
    void watchMemoryPressure(std::function<void()> onPressure) override;

    void setMemoryStatistics(std::optional<MemoryStatistics> statistics);
    void setResidentSize(std::optional<std::uint64_t> bytes);
    void setHardwareMachine(std::string machine);
    void setOperatingSystemVersionString(std::optional<std::string> version);
    void setLocaleCountryCode(std::optional<std::string> country);
    void setLocaleLanguageCode(std::optional<std::string> language);
    void setWifiNetworkName(std::optional<std::string> ssid);
    void setCarrierName(std::optional<std::string> carrier);
    void setLastKnownLocation(std::optional<LocationCoordinate> location);
    // What the battery reports while monitoring is on.
    void setBatteryStatus(BatteryStatus status);
    void setIdentifierForVendor(std::string identifier);
    void setDeviceName(std::string name);
    void setStatusBarOrientation(std::int64_t orientation);
    void setSimulator(bool simulator);
    void setFileSystemRoot(std::string root);

    bool isBatteryMonitoringEnabled() const;
    bool isWatchingMemoryPressure() const;
    // Reports memory pressure to the watcher, on the calling thread, as the system would.
    void simulateMemoryPressure();

  private:
    static constexpr std::int64_t kGibibyte = 1024LL * 1024 * 1024;

    mutable std::mutex mutex_;
    std::optional<MemoryStatistics> memory_ = MemoryStatistics{2 * kGibibyte, kGibibyte};
    std::optional<std::uint64_t> residentSize_ = 64u * 1024 * 1024;
    std::string machine_ = "x86_64";
    std::optional<std::string> osVersion_ = "Linux 6.1.0";
    std::optional<std::string> country_ = "US";
    std::optional<std::string> language_ = "en";
    std::optional<std::string> wifi_;
    std::optional<std::string> carrier_;
    std::optional<LocationCoordinate> location_;
    bool batteryMonitoring_ = false;
    BatteryStatus battery_{0.5, BatteryState::Unplugged};
    std::string identifierForVendor_ = kDefaultIdentifierForVendor;
    std::string name_ = "Test Device";
    std::int64_t orientation_ = 1;
    bool simulator_ = true;
    std::string root_;
    std::function<void()> onPressure_;
};

}  // namespace tarvik::testing
