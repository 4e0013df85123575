#pragma once

#include "Helpers/TVKDirectoryLayout.h"
#include "Platform/Image.h"
#include "Platform/Testing/ReporterFingers.h"
#include "Platform/Testing/TestRuntime.h"

#include <tarvik/Tarvik.h>

#include <string>
#include <vector>

namespace tarvik::testing {

// The SDK in a test runtime, its reporter used by a person whose every pause moves the
// virtual clock.
class ReporterDriver : public ReporterFingers {
  public:
    ReporterDriver() : ReporterFingers([this](double seconds) { runtime.advance(seconds); }) {}

    TestRuntime runtime;
    Tarvik& tarvik = Tarvik::sharedInstance();

    // Opens the reporter and lets its entrance settle.
    void open();
    // What the screen shows now, the host's window under the SDK's windows.
    Image screen();
    // The names of the issues in one status folder of the SDK's cache.
    std::vector<std::string> issuesIn(TVKDirectoryLayout::Status status) const;
};

}  // namespace tarvik::testing
