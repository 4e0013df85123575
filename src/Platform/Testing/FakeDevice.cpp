#include "Platform/Testing/FakeDevice.h"

namespace tarvik::testing {

std::optional<DeviceProbes::MemoryStatistics> FakeDevice::memoryStatistics() const {
    std::lock_guard lock(mutex_);
    return memory_;
}

std::optional<std::uint64_t> FakeDevice::residentSize() const {
    std::lock_guard lock(mutex_);
    return residentSize_;
}

std::string FakeDevice::hardwareMachine() const {
    std::lock_guard lock(mutex_);
    return machine_;
}

std::optional<std::string> FakeDevice::operatingSystemVersionString() const {
    std::lock_guard lock(mutex_);
    return osVersion_;
}

std::optional<std::string> FakeDevice::localeCountryCode() const {
    std::lock_guard lock(mutex_);
    return country_;
}

std::optional<std::string> FakeDevice::localeLanguageCode() const {
    std::lock_guard lock(mutex_);
    return language_;
}

std::optional<std::string> FakeDevice::wifiNetworkName() const {
    std::lock_guard lock(mutex_);
    return wifi_;
}

std::optional<std::string> FakeDevice::carrierName() const {
    std::lock_guard lock(mutex_);
    return carrier_;
}

std::optional<LocationCoordinate> FakeDevice::lastKnownLocation() const {
    std::lock_guard lock(mutex_);
    return location_;
}

std::string FakeDevice::identifierForVendor() const {
    std::lock_guard lock(mutex_);
    return identifierForVendor_;
}

std::string FakeDevice::deviceName() const {
    std::lock_guard lock(mutex_);
    return name_;
}

std::int64_t FakeDevice::statusBarOrientation() const {
    std::lock_guard lock(mutex_);
    return orientation_;
}

bool FakeDevice::isSimulator() const {
    std::lock_guard lock(mutex_);
    return simulator_;
}

std::string FakeDevice::fileSystemRoot() const {
    std::lock_guard lock(mutex_);
    return root_;
}

bool FakeDevice::isBatteryMonitoringEnabled() const {
    std::lock_guard lock(mutex_);
    return batteryMonitoring_;
}

void FakeDevice::setMemoryStatistics(std::optional<MemoryStatistics> statistics) {
    std::lock_guard lock(mutex_);
    memory_ = std::move(statistics);
}

void FakeDevice::setResidentSize(std::optional<std::uint64_t> bytes) {
    std::lock_guard lock(mutex_);
    residentSize_ = bytes;
}

void FakeDevice::setHardwareMachine(std::string machine) {
    std::lock_guard lock(mutex_);
    machine_ = std::move(machine);
}

void FakeDevice::setOperatingSystemVersionString(std::optional<std::string> version) {
    std::lock_guard lock(mutex_);
    osVersion_ = std::move(version);
}

void FakeDevice::setLocaleCountryCode(std::optional<std::string> country) {
    std::lock_guard lock(mutex_);
    country_ = std::move(country);
}

void FakeDevice::setLocaleLanguageCode(std::optional<std::string> language) {
    std::lock_guard lock(mutex_);
    language_ = std::move(language);
}

void FakeDevice::setWifiNetworkName(std::optional<std::string> ssid) {
    std::lock_guard lock(mutex_);
    wifi_ = std::move(ssid);
}

void FakeDevice::setCarrierName(std::optional<std::string> carrier) {
    std::lock_guard lock(mutex_);
    carrier_ = std::move(carrier);
}

void FakeDevice::setLastKnownLocation(std::optional<LocationCoordinate> location) {
    std::lock_guard lock(mutex_);
    location_ = location;
}

void FakeDevice::setBatteryStatus(BatteryStatus status) {
    std::lock_guard lock(mutex_);
    battery_ = status;
}

void FakeDevice::setIdentifierForVendor(std::string identifier) {
    std::lock_guard lock(mutex_);
    identifierForVendor_ = std::move(identifier);
}

void FakeDevice::setDeviceName(std::string name) {
    std::lock_guard lock(mutex_);
    name_ = std::move(name);
}

void FakeDevice::setStatusBarOrientation(std::int64_t orientation) {
    std::lock_guard lock(mutex_);
    orientation_ = orientation;
}

void FakeDevice::setSimulator(bool simulator) {
    std::lock_guard lock(mutex_);
    simulator_ = simulator;
}

void FakeDevice::setFileSystemRoot(std::string root) {
    std::lock_guard lock(mutex_);
    root_ = std::move(root);
}

void FakeDevice::setBatteryMonitoringEnabled(bool enabled) {
    std::lock_guard lock(mutex_);
    batteryMonitoring_ = enabled;
}

void FakeDevice::setUserLocation(LocationCoordinate coordinate) {
    setLastKnownLocation(coordinate);
}

BatteryStatus FakeDevice::batteryStatus() const {
    std::lock_guard lock(mutex_);
    // As on a phone, the battery reads unknown until monitoring is switched on.
    return batteryMonitoring_ ? battery_ : BatteryStatus{};
}

void FakeDevice::watchMemoryPressure(std::function<void()> onPressure) {
    std::lock_guard lock(mutex_);
    onPressure_ = std::move(onPressure);
}

bool FakeDevice::isWatchingMemoryPressure() const {
    std::lock_guard lock(mutex_);
    return static_cast<bool>(onPressure_);
}

void FakeDevice::simulateMemoryPressure() {
    std::function<void()> onPressure;
    {
        std::lock_guard lock(mutex_);
        onPressure = onPressure_;
    }
    if (onPressure) {
        onPressure();
    }
}

}  // namespace tarvik::testing
