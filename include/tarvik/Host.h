#pragma once

#include <tarvik/Value.h>

#include <functional>

// What a host application on a desktop platform provides that a phone's system provides on
// its own: a main loop to run the SDK's main-thread work, and its bundle information.
namespace tarvik {

// Runs the SDK's main queue (its timers and main-thread work) on the calling thread, which
// becomes the SDK's main thread, for `seconds`, or until `done` answers true.
void runMainLoop(double seconds, const std::function<bool()>& done = nullptr);

// Bundle information (CFBundleIdentifier, CFBundleName, CFBundleShortVersionString, ...) for a
// host that has no Info.plist beside its executable. Call it before starting the SDK.
void setMainBundleInfo(Dictionary info);

// The user's location in degrees, for a host that knows it: desktop platforms have no location
// service of their own. Reports carry it only while the SDK's saveUserLocation is on.
void setUserLocation(double latitude, double longitude);

}  // namespace tarvik
