#pragma once

#include "Platform/DeviceProbes.h"

#include <cstdint>
#include <optional>
#include <string>

// What a submission tells about the device it comes from. Every answer is read from the
// platform's probes at the moment of asking; only the jailbreak answer is kept (in the
// settings). Safe to call from any thread.
namespace tarvik {

// Free and used physical memory in bytes; 0 when the statistics cannot be read.
std::int64_t tarvik_memoryFree();
std::int64_t tarvik_memoryUsed();
// Size and used space, in bytes, of the file system holding the documents folder; 0 when
// the file system cannot be asked.
std::uint64_t tarvik_diskUsed();
std::uint64_t tarvik_diskTotal();

// The jailbreak answer, tested once and then kept in the settings (written with their next
// save).
bool tarvik_isJailbroken();
// The test itself. A simulator answers false without testing anything. Otherwise, in order:
// any of the well-known jailbreak paths exists; any of the well-known jailbreak files opens
// for reading; a file can be written to "/private", outside the application's sandbox.
bool tarvik_checkJailbroken();

// The SSID of the current Wi-Fi network, if any.
std::optional<std::string> tarvik_wifiNetworkName();
// The cellular provider's name, if any.
std::optional<std::string> tarvik_carrierName();
// The last location the system holds; kLocationCoordinateInvalid when there is none.
LocationCoordinate tarvik_userLocation();
// The locale's country code ("US"), and its language code joined to that by "_" ("en_US").
// Both are "" when there is no locale to ask; a locale without a country has region "" and
// the language code alone ("de").
std::string tarvik_deviceRegion();
std::string tarvik_deviceLanguage();
// The hardware model, such as "x86_64".
std::string tarvik_hardwareName();

// The three steps of tarvik_checkJailbroken, each on its own. Every path is taken below
// `root`, the platform's file system root ("" on a real system).
namespace jailbreak {
bool anyKnownPathExists(const std::string& root);
bool anyKnownFileOpens(const std::string& root);
bool canWriteOutsideSandbox(const std::string& root);
}  // namespace jailbreak

}  // namespace tarvik
