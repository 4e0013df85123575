#pragma once

#include <tarvik/Value.h>

#include <functional>
#include <optional>
#include <string>

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

// The gettext text domain that holds the host's translations of the reporter's texts, keyed by
// their English text ("Circle the Problem", "OK", ...). Without one the process's current
// domain is used; a text without a translation shows in English.
void setLocalizationDomain(std::optional<std::string> domain);

}  // namespace tarvik
