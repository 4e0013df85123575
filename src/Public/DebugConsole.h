#pragma once

#include <string>

namespace tarvik {

// Writes a console line only when the SDK runs in debug mode: the SDK is silent otherwise.
void logToConsoleIfDebug(const std::string& text);

}  // namespace tarvik
