#include "Platform/Testing/TestingPlatform.h"

#include "Platform/FrameworkBundle.h"

#include <stdexcept>

namespace tarvik::testing {

Date VirtualClock::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

double VirtualClock::mediaTime() const {
    std::lock_guard lock(mutex_);
    return mediaTime_;
}

void VirtualClock::advance(double seconds) {
    std::lock_guard lock(mutex_);
    now_ += std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
    mediaTime_ += seconds;
}

void VirtualClock::setNow(Date date) {
    std::lock_guard lock(mutex_);
    now_ = date;
}

std::optional<Dictionary> MemoryDefaultsStore::persistentDomainForName(
    const std::string& name) const {
    std::lock_guard lock(mutex_);
    auto it = domains_.find(name);
    if (it == domains_.end()) {
        return std::nullopt;
    }
    return it->second;
}

void MemoryDefaultsStore::setPersistentDomain(const Dictionary& domain, const std::string& name) {
    std::lock_guard lock(mutex_);
    domains_[name] = domain;
}

void RecordingConsole::writeLine(const std::string& text) {
    std::lock_guard lock(mutex_);
    lines_.push_back(text);
}

std::vector<std::string> RecordingConsole::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

void RecordingConsole::clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
}

void ScriptedConsoleCapture::capture(Stream stream, ChunkHandler handler) {
    std::lock_guard lock(mutex_);
    handlers_[indexOf(stream)] = std::move(handler);
}

void ScriptedConsoleCapture::writeToOriginal(Stream stream, std::string_view bytes) {
    std::lock_guard lock(mutex_);
    original_[indexOf(stream)].append(bytes);
}

bool ScriptedConsoleCapture::isCapturing(Stream stream) const {
    std::lock_guard lock(mutex_);
    return static_cast<bool>(handlers_[indexOf(stream)]);
}

void ScriptedConsoleCapture::emit(Stream stream, std::string_view bytes) {
    ChunkHandler handler;
    {
        std::lock_guard lock(mutex_);
        handler = handlers_[indexOf(stream)];
    }
    if (handler) {
        handler(stream, bytes);
    }
}

std::string ScriptedConsoleCapture::writtenToOriginal(Stream stream) const {
    std::lock_guard lock(mutex_);
    return original_[indexOf(stream)];
}

Rect FakeScreen::bounds() const {
    std::lock_guard lock(mutex_);
    return bounds_;
}

double FakeScreen::scale() const {
    std::lock_guard lock(mutex_);
    return scale_;
}

double FakeScreen::statusBarHeight() const {
    std::lock_guard lock(mutex_);
    return statusBarHeight_;
}

void FakeScreen::setBounds(Rect bounds) {
    std::lock_guard lock(mutex_);
    bounds_ = bounds;
}

void FakeScreen::setScale(double scale) {
    std::lock_guard lock(mutex_);
    scale_ = scale;
}

void FakeScreen::setStatusBarHeight(double height) {
    std::lock_guard lock(mutex_);
    statusBarHeight_ = height;
}

UIDeviceOrientation FakeScreen::deviceOrientation() const {
    std::lock_guard lock(mutex_);
    return deviceOrientation_;
}

UIInterfaceOrientation FakeScreen::interfaceOrientation() const {
    std::lock_guard lock(mutex_);
    return interfaceOrientation_;
}

void FakeScreen::watchDeviceOrientation(std::function<void(UIDeviceOrientation)> onChange) {
    std::lock_guard lock(mutex_);
    onOrientationChange_ = std::move(onChange);
}

void FakeScreen::setInterfaceOrientation(UIInterfaceOrientation orientation) {
    std::lock_guard lock(mutex_);
    interfaceOrientation_ = orientation;
}

void FakeScreen::setDeviceOrientation(UIDeviceOrientation orientation) {
    std::function<void(UIDeviceOrientation)> onChange;
    {
        std::lock_guard lock(mutex_);
        if (deviceOrientation_ == orientation) {
            return;
        }
        deviceOrientation_ = orientation;
        onChange = onOrientationChange_;
    }
    if (onChange) {
        onChange(orientation);  // outside the lock: the watcher may ask the screen again
    }
}

TestingPlatform::TestingPlatform(std::string root)
    : root_(std::move(root)),
      runLoop_(clock_),
      globalQueue_(std::make_unique<ThreadPool>(2)),
      folders_(root_),
      mainBundleInfo_{{"CFBundleIdentifier", "com.example.host"},
                      {"CFBundleName", "Host"},
                      {"CFBundleExecutable", "Host"},
                      {"CFBundleShortVersionString", "2.5"},
                      {"CFBundleVersion", "250"}} {}

Bundle TestingPlatform::mainBundle() const {
    std::lock_guard lock(bundleMutex_);
    return Bundle(root_ + "/Host.app", mainBundleInfo_, root_ + "/Host.app");
}

Bundle TestingPlatform::frameworkBundle() const {
    return makeFrameworkBundle(defaultResourcesDirectory());
}

void TestingPlatform::setMainBundleInfo(Dictionary info) {
    std::lock_guard lock(bundleMutex_);
    mainBundleInfo_ = std::move(info);
}

void TestingPlatform::drain() {
    // Background work may wait for the main queue, so the two are served in turns. Bounded in
    // real time, so that work that never settles fails the test instead of hanging it.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline) {
        if (runLoop_.runDueWork()) {
            continue;
        }
        // Each queue looked idle when it was asked, but work can move between them while they
        // are asked one by one (a sending thread queues a main-queue task, then ends). Nothing
        // was submitted anywhere between the two counts, so every queue was idle at once.
        std::uint64_t before = workSubmitted();
        bool idle = globalQueue_->waitUntilIdleFor(std::chrono::milliseconds(1)) &&
                    !runLoop_.hasDueWork() && (!extraWork_.isIdle || extraWork_.isIdle());
        if (idle && workSubmitted() == before) {
            return;
        }
    }
    throw std::runtime_error("background work did not settle within a minute");
}

std::uint64_t TestingPlatform::workSubmitted() {
    return runLoop_.workSubmitted() + globalQueue_->workSubmitted() +
           (extraWork_.submitted ? extraWork_.submitted() : 0);
}

void TestingPlatform::setExtraBackgroundWork(ExtraBackgroundWork work) {
    extraWork_ = std::move(work);
}

void TestingPlatform::advance(double seconds) {
    double target = clock_.mediaTime() + seconds;
    drain();
    for (;;) {
        std::optional<double> next = runLoop_.nextTimerDue();
        if (!next || *next > target) {
            break;
        }
        clock_.advance(std::max(0.0, *next - clock_.mediaTime()));
        drain();
    }
    clock_.advance(target - clock_.mediaTime());
    drain();
}

void TestingPlatform::runMainLoop(double seconds, const std::function<bool()>& done) {
    // Step the virtual clock in small increments so that `done` is checked as time passes.
    double target = clock_.mediaTime() + seconds;
    drain();
    while (!done() && clock_.mediaTime() < target) {
        advance(std::min(0.1, target - clock_.mediaTime()));
    }
}

}  // namespace tarvik::testing
