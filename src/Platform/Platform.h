#pragma once

#include "Platform/Accelerometer.h"
#include "Platform/Bundle.h"
#include "Platform/Clock.h"
#include "Platform/Console.h"
#include "Platform/ConsoleCapture.h"
#include "Platform/DeviceProbes.h"
#include "Platform/DispatchQueue.h"
#include "Platform/Folders.h"
#include "Platform/HostWindow.h"
#include "Platform/Localization.h"
#include "Platform/MainQueue.h"
#include "Platform/ScreenMetrics.h"
#include "Platform/SoundPlayer.h"
#include "Platform/TVKHttpTransport.h"
#include "Platform/UserDefaultsStore.h"
#include "Platform/UserScreenshots.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tarvik {

// What the operating system supplies to the SDK. One implementation per platform (Linux,
// Testing, later iOS); the core never asks which one it runs on.
class Platform {
  public:
    virtual ~Platform() = default;

    virtual Clock& clock() = 0;
    virtual MainQueue& mainQueue() = 0;
    virtual DispatchQueue& globalQueue() = 0;
    virtual Folders& folders() = 0;
    virtual UserDefaultsStore& userDefaults() = 0;
    virtual Console& console() = 0;
    virtual ConsoleCapture& consoleCapture() = 0;
    virtual DeviceProbes& device() = 0;
    virtual TVKHttpTransport& httpTransport() = 0;
    virtual ScreenMetrics& screen() = 0;
    // What the reporter needs of the system: the host's translations, its main window as an
    // image, and sounds.
    virtual Localization& localization() = 0;
    virtual HostWindow& hostWindow() = 0;
    virtual SoundPlayer& sounds() = 0;
    // What starts a report by itself: the device's motion and the user's own screenshots.
    virtual Accelerometer& accelerometer() = 0;
    virtual UserScreenshots& userScreenshots() = 0;
    // Where the host keeps those translations, for a platform whose catalogues are named.
    virtual void setLocalizationDomain(std::optional<std::string>) {}

    // The host application's bundle and the SDK's own.
    virtual Bundle mainBundle() const = 0;
    virtual Bundle frameworkBundle() const = 0;
    // Information a host without a bundle of its own supplies before it starts the SDK.
    virtual void setMainBundleInfo(Dictionary info) = 0;

    // Runs the main queue on the calling thread for up to `seconds` (of the platform's own
    // time), returning early once `done` answers true.
    virtual void runMainLoop(double seconds, const std::function<bool()>& done) = 0;

    // Stops background work before the runtime destroys the SDK's objects.
    virtual void shutDown() = 0;
};

// The platform a process gets when it starts the SDK without making a runtime of its own.
std::unique_ptr<Platform> makeDefaultPlatform();

}  // namespace tarvik
