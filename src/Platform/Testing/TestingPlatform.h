#pragma once

#include "Platform/Platform.h"
#include "Platform/RunLoop.h"
#include "Platform/Testing/FakeDevice.h"
#include "Platform/Testing/FakeHttpTransport.h"
#include "Platform/Testing/FakeReporterSeams.h"
#include "Platform/Testing/FakeTriggers.h"
#include "Platform/ThreadPool.h"

#include <array>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace tarvik::testing {

// A virtual clock: time moves only when a test moves it.
class VirtualClock : public Clock {
  public:
    Date now() const override;
    double mediaTime() const override;
    // Moves wall and media time forward together.
    void advance(double seconds);
    void setNow(Date date);

  private:
    mutable std::mutex mutex_;
    // 2026-01-02T03:04:05Z, an arbitrary fixed start so that dates in tests are reproducible.
    Date now_ = Date(std::chrono::seconds(1767323045));
    double mediaTime_ = 1000.0;
};

class FolderTree : public Folders {
  public:
    explicit FolderTree(std::string root) : root_(std::move(root)) {}
    std::string cachesDirectory() const override { return root_ + "/Library/Caches"; }
    std::string applicationSupportDirectory() const override {
        return root_ + "/Library/Application Support";
    }
    std::string documentsDirectory() const override { return root_ + "/Documents"; }
    std::string temporaryDirectory() const override { return root_ + "/tmp"; }

  private:
    std::string root_;
};

class MemoryDefaultsStore : public UserDefaultsStore {
  public:
    std::optional<Dictionary> persistentDomainForName(const std::string& name) const override;
    void setPersistentDomain(const Dictionary& domain, const std::string& name) override;

  private:
    mutable std::mutex mutex_;
    std::map<std::string, Dictionary> domains_;
};

// Keeps every console line for assertions.
class RecordingConsole : public Console {
  public:
    void writeLine(const std::string& text) override;
    std::vector<std::string> lines() const;
    void clear();

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

// Hands the SDK chunks a test emits, and records what the SDK writes to the real console.
// Nothing is redirected: the test process keeps its own descriptors.
class ScriptedConsoleCapture : public ConsoleCapture {
  public:
    void capture(Stream stream, ChunkHandler handler) override;
    void writeToOriginal(Stream stream, std::string_view bytes) override;
    void flush() override {}
    void flushBeforeExit(double, double) override {}

    bool isCapturing(Stream stream) const;
    // Delivers a chunk as if the host had written it to the captured stream.
    void emit(Stream stream, std::string_view bytes);
    std::string writtenToOriginal(Stream stream) const;

  private:
    static size_t indexOf(Stream stream) { return stream == Stream::StandardOutput ? 0 : 1; }
    mutable std::mutex mutex_;
    std::array<ChunkHandler, 2> handlers_;
    std::array<std::string, 2> original_;
};

// A screen whose bounds, scale, orientations and status bar a test sets; until then a
// phone's: 375 × 667 points at scale 2, held and shown upright, with a 20-point status bar.
class FakeScreen : public ScreenMetrics {
  public:
    Rect bounds() const override;
    double scale() const override;
    double statusBarHeight() const override;
    UIDeviceOrientation deviceOrientation() const override;
    UIInterfaceOrientation interfaceOrientation() const override;
    void watchDeviceOrientation(std::function<void(UIDeviceOrientation)> onChange) override;

    void setBounds(Rect bounds);
    void setScale(double scale);
    void setStatusBarHeight(double height);
    // Turns the interface; nothing is reported (the phone reports the device's turns).
    void setInterfaceOrientation(UIInterfaceOrientation orientation);
    // Turns the device, and reports it to the watcher when the orientation changes.
    void setDeviceOrientation(UIDeviceOrientation orientation);

  private:
    mutable std::mutex mutex_;
    Rect bounds_{{0, 0}, {375, 667}};
    double scale_ = 2;
    double statusBarHeight_ = 20;
    UIDeviceOrientation deviceOrientation_ = UIDeviceOrientationPortrait;
    UIInterfaceOrientation interfaceOrientation_ = UIInterfaceOrientationPortrait;
    std::function<void(UIDeviceOrientation)> onOrientationChange_;
};

// Deterministic fakes: a virtual clock whose advance fires due timers in order, folders inside
// a test's own tree, defaults in memory, a recorded console and a fixed host bundle.
class TestingPlatform : public Platform {
  public:
    explicit TestingPlatform(std::string root);

    Clock& clock() override { return clock_; }
    MainQueue& mainQueue() override { return runLoop_; }
    DispatchQueue& globalQueue() override { return *globalQueue_; }
    Folders& folders() override { return folders_; }
    UserDefaultsStore& userDefaults() override { return defaults_; }
    Console& console() override { return console_; }
    ConsoleCapture& consoleCapture() override { return consoleCapture_; }
    DeviceProbes& device() override { return device_; }
    TVKHttpTransport& httpTransport() override { return httpTransport_; }
    ScreenMetrics& screen() override { return screen_; }
    TableLocalization& localization() override { return localization_; }
    FixedHostWindow& hostWindow() override { return hostWindow_; }
    RecordingSoundPlayer& sounds() override { return sounds_; }
    ScriptedAccelerometer& accelerometer() override { return accelerometer_; }
    ScriptedUserScreenshots& userScreenshots() override { return userScreenshots_; }
    Bundle mainBundle() const override;
    Bundle frameworkBundle() const override;
    void setMainBundleInfo(Dictionary info) override;
    void runMainLoop(double seconds, const std::function<bool()>& done) override;
    void shutDown() override { globalQueue_.reset(); }

    VirtualClock& virtualClock() { return clock_; }
    RunLoop& runLoop() { return runLoop_; }
    RecordingConsole& recordingConsole() { return console_; }
    ScriptedConsoleCapture& scriptedConsoleCapture() { return consoleCapture_; }
    FakeDevice& fakeDevice() { return device_; }
    FakeHttpTransport& fakeHttpTransport() { return httpTransport_; }
    FakeScreen& fakeScreen() { return screen_; }
    SystemCallLog& systemCalls() { return systemCalls_; }
    ThreadPool& threadPool() { return *globalQueue_; }
    const std::string& root() const { return root_; }

    // Runs main-queue work and waits for background work until neither has anything left.
    // Throws when the work does not settle within a minute of real time.
    void drain();
    // Background work the platform does not own itself (operations, sending threads), which
    // drain also waits for: whether there is none, and how many pieces were ever started.
    struct ExtraBackgroundWork {
        std::function<bool()> isIdle;
        std::function<std::uint64_t()> submitted;
    };
    void setExtraBackgroundWork(ExtraBackgroundWork work);
    // Moves the virtual clock forward, firing every timer that falls due on the way at its
    // own due time, in order.
    void advance(double seconds);

  private:
    std::string root_;
    VirtualClock clock_;
    RunLoop runLoop_;
    std::unique_ptr<ThreadPool> globalQueue_;
    FolderTree folders_;
    MemoryDefaultsStore defaults_;
    RecordingConsole console_;
    ScriptedConsoleCapture consoleCapture_;
    FakeDevice device_;
    FakeHttpTransport httpTransport_;
    FakeScreen screen_;
    TableLocalization localization_;
    SystemCallLog systemCalls_;
    FixedHostWindow hostWindow_{screen_, systemCalls_};
    RecordingSoundPlayer sounds_{systemCalls_};
    ScriptedAccelerometer accelerometer_;
    ScriptedUserScreenshots userScreenshots_;
    mutable std::mutex bundleMutex_;
    Dictionary mainBundleInfo_;
    std::uint64_t workSubmitted();

    ExtraBackgroundWork extraWork_;
};

}  // namespace tarvik::testing
