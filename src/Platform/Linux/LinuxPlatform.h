#pragma once

#include "Platform/Linux/GettextLocalization.h"
#include "Platform/Linux/IioAccelerometer.h"
#include "Platform/Linux/LinuxDeviceProbes.h"
#include "Platform/Linux/PipeConsoleCapture.h"
#include "Platform/Linux/ScreenshotFolderWatcher.h"
#include "Platform/Platform.h"
#include "Platform/RunLoop.h"
#include "Platform/ThreadPool.h"

#include <memory>
#include <mutex>
#include <optional>

namespace tarvik {

class SystemClock : public Clock {
  public:
    Date now() const override { return std::chrono::system_clock::now(); }
    double mediaTime() const override;
};

// The XDG folders: caches in $XDG_CACHE_HOME or ~/.cache, application support in
// $XDG_DATA_HOME or ~/.local/share, documents in $HOME. Read once, when the platform starts.
class XdgFolders : public Folders {
  public:
    XdgFolders();
    std::string cachesDirectory() const override { return caches_; }
    std::string applicationSupportDirectory() const override { return applicationSupport_; }
    std::string documentsDirectory() const override { return documents_; }
    std::string temporaryDirectory() const override { return temporary_; }
    std::string configDirectory() const { return config_; }

  private:
    std::string caches_, applicationSupport_, documents_, temporary_, config_;
};

// Each defaults domain is a property-list file "<domain>.plist" in the user's config folder.
class PlistFileDefaultsStore : public UserDefaultsStore {
  public:
    explicit PlistFileDefaultsStore(std::string folder) : folder_(std::move(folder)) {}
    std::optional<Dictionary> persistentDomainForName(const std::string& name) const override;
    void setPersistentDomain(const Dictionary& domain, const std::string& name) override;

  private:
    std::string pathFor(const std::string& name) const;
    std::string folder_;
    mutable std::mutex mutex_;
};

class StandardErrorConsole : public Console {
  public:
    void writeLine(const std::string& text) override;
};

// The screen until the desktop layer, which knows the window the reporter appears over, sets
// the size and scale of that window's content: a common laptop size at scale 1, so that the
// SDK's bitmaps have a scale before any window exists.
class DesktopScreenMetrics : public ScreenMetrics {
  public:
    Rect bounds() const override;
    double scale() const override;
    void set(Rect bounds, double scale);

  private:
    mutable std::mutex mutex_;
    Rect bounds_{{0, 0}, {1280, 800}};
    double scale_ = 1;
};

class LinuxPlatform : public Platform {
  public:
    LinuxPlatform();

    Clock& clock() override { return clock_; }
    MainQueue& mainQueue() override { return runLoop_; }
    DispatchQueue& globalQueue() override { return *globalQueue_; }
    Folders& folders() override { return folders_; }
    UserDefaultsStore& userDefaults() override { return defaults_; }
    Console& console() override { return console_; }
    ConsoleCapture& consoleCapture() override { return consoleCapture_; }
    DeviceProbes& device() override { return device_; }
    TVKHttpTransport& httpTransport() override { return *httpTransport_; }
    ScreenMetrics& screen() override { return screen_; }
    GettextLocalization& localization() override { return localization_; }
    SuppliedHostWindow& hostWindow() override { return hostWindow_; }
    SuppliedSoundPlayer& sounds() override { return sounds_; }
    IioAccelerometer& accelerometer() override { return accelerometer_; }
    ScreenshotFolderWatcher& userScreenshots() override;
    Bundle mainBundle() const override;
    Bundle frameworkBundle() const override;
    void setMainBundleInfo(Dictionary info) override;
    void setLocalizationDomain(std::optional<std::string> domain) override {
        localization_.setTextDomain(std::move(domain));
    }
    void runMainLoop(double seconds, const std::function<bool()>& done) override;
    void shutDown() override {
        globalQueue_.reset();
        consoleCapture_.stop();
        device_.stopWatchingMemoryPressure();
        std::lock_guard lock(screenshotFoldersMutex_);
        if (screenshotFolders_) {
            screenshotFolders_->stop();
        }
    }

  private:
    SystemClock clock_;
    RunLoop runLoop_;
    std::unique_ptr<ThreadPool> globalQueue_;
    XdgFolders folders_;
    PlistFileDefaultsStore defaults_;
    StandardErrorConsole console_;
    PipeConsoleCapture consoleCapture_;
    std::string executableDirectory_;
    std::optional<Dictionary> infoPlist_;  // the Info.plist beside the executable
    mutable std::mutex bundleMutex_;
    Dictionary hostInfo_;
    LinuxDeviceProbes device_;
    DesktopScreenMetrics screen_;
    GettextLocalization localization_;
    SuppliedHostWindow hostWindow_;
    SuppliedSoundPlayer sounds_;
    IioAccelerometer accelerometer_{IioAccelerometer::sysfsRootFromEnvironment()};
    // Made when first asked for: finding the folders reads the user's settings and a translation
    // catalogue, which an app that never watches screenshots should not pay for at start.
    std::mutex screenshotFoldersMutex_;
    std::unique_ptr<ScreenshotFolderWatcher> screenshotFolders_;
    std::unique_ptr<TVKHttpTransport> httpTransport_ = makePlatformHttpTransport();
};

}  // namespace tarvik
