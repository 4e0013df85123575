#include "Platform/Linux/LinuxPlatform.h"

#include "Platform/FrameworkBundle.h"
#include "Platform/PropertyList.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include <unistd.h>

namespace tarvik {

namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::string homeDirectory() {
    std::string home = environment("HOME");
    return home.empty() ? "/" : home;
}

// An XDG variable when it is set to an absolute path, else the fallback below $HOME.
std::string xdgDirectory(const char* variable, const char* fallbackBelowHome) {
    std::string value = environment(variable);
    if (!value.empty() && value.front() == '/') {
        return value;
    }
    return (std::filesystem::path(homeDirectory()) / fallbackBelowHome).string();
}

std::string executablePath() {
    std::error_code error;
    auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : path.string();
}

}  // namespace

double SystemClock::mediaTime() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

XdgFolders::XdgFolders()
    : caches_(xdgDirectory("XDG_CACHE_HOME", ".cache")),
      applicationSupport_(xdgDirectory("XDG_DATA_HOME", ".local/share")),
      documents_(homeDirectory()),
      temporary_(environment("TMPDIR").empty() ? "/tmp" : environment("TMPDIR")),
      config_(xdgDirectory("XDG_CONFIG_HOME", ".config")) {}

std::string PlistFileDefaultsStore::pathFor(const std::string& name) const {
    return (std::filesystem::path(folder_) / (name + ".plist")).string();
}

std::optional<Dictionary> PlistFileDefaultsStore::persistentDomainForName(
    const std::string& name) const {
    std::lock_guard lock(mutex_);
    std::optional<Value> value = plist::readFile(pathFor(name));
    if (!value || !value->isDictionary()) {
        return std::nullopt;
    }
    return *value->asDictionary();
}

void PlistFileDefaultsStore::setPersistentDomain(const Dictionary& domain,
                                                 const std::string& name) {
    std::lock_guard lock(mutex_);
    std::error_code ignored;
    std::filesystem::create_directories(folder_, ignored);
    plist::writeFileAtomically(Value(domain), pathFor(name));
}

void StandardErrorConsole::writeLine(const std::string& text) {
    std::string line = text + "\n";
    for (size_t offset = 0; offset < line.size();) {
        ssize_t n = ::write(STDERR_FILENO, line.data() + offset, line.size() - offset);
        if (n <= 0) {
            return;
        }
        offset += static_cast<size_t>(n);
    }
}

Rect DesktopScreenMetrics::bounds() const {
    std::lock_guard lock(mutex_);
    return bounds_;
}

double DesktopScreenMetrics::scale() const {
    std::lock_guard lock(mutex_);
    return scale_;
}

void DesktopScreenMetrics::set(Rect bounds, double scale) {
    std::lock_guard lock(mutex_);
    bounds_ = bounds;
    scale_ = scale;
}

LinuxPlatform::LinuxPlatform()
    : runLoop_(clock_),
      globalQueue_(std::make_unique<ThreadPool>(std::max(2u, std::thread::hardware_concurrency()))),
      defaults_(folders_.configDirectory()),
      executableDirectory_(std::filesystem::path(executablePath()).parent_path().string()),
      device_([this] { return mainBundle().bundleIdentifier(); }) {
    std::optional<Value> info = plist::readFile(executableDirectory_ + "/Info.plist");
    if (info && info->isDictionary()) {
        infoPlist_ = *info->asDictionary();
    }
}

Bundle LinuxPlatform::mainBundle() const {
    if (infoPlist_) {
        return Bundle(executableDirectory_, *infoPlist_, executableDirectory_);
    }
    // Without an Info.plist the executable's name stands in for what the host did not give.
    std::string name = std::filesystem::path(executablePath()).filename().string();
    Dictionary info{
        {"CFBundleIdentifier", name}, {"CFBundleName", name}, {"CFBundleExecutable", name}};
    std::lock_guard lock(bundleMutex_);
    for (const auto& [key, value] : hostInfo_) {
        info[key] = value;
    }
    return Bundle(executableDirectory_, std::move(info), executableDirectory_);
}

Bundle LinuxPlatform::frameworkBundle() const {
    return makeFrameworkBundle(defaultResourcesDirectory());
}

void LinuxPlatform::setMainBundleInfo(Dictionary info) {
    std::lock_guard lock(bundleMutex_);
    hostInfo_ = std::move(info);
}

ScreenshotFolderWatcher& LinuxPlatform::userScreenshots() {
    std::lock_guard lock(screenshotFoldersMutex_);
    if (!screenshotFolders_) {
        screenshotFolders_ =
            std::make_unique<ScreenshotFolderWatcher>(ScreenshotFolderWatcher::defaultFolders());
    }
    return *screenshotFolders_;
}

void LinuxPlatform::runMainLoop(double seconds, const std::function<bool()>& done) {
    runLoop_.adoptCurrentThread();
    double deadline = clock_.mediaTime() + seconds;
    for (;;) {
        runLoop_.runDueWork();
        if (done()) {
            return;
        }
        double now = clock_.mediaTime();
        if (now >= deadline) {
            return;
        }
        double until = deadline;
        if (auto next = runLoop_.nextTimerDue()) {
            until = std::min(until, *next);
        }
        // Wake at least every 50 ms so that `done` sees changes made by other threads.
        runLoop_.waitForWork(std::min(until - now, 0.05));
    }
}

std::unique_ptr<Platform> makeDefaultPlatform() {
    return std::make_unique<LinuxPlatform>();
}

}  // namespace tarvik
