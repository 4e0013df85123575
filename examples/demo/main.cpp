// A small host application: it starts the SDK the way an app would, in debug mode, and runs
// its main loop for a moment so that the SDK's main-thread work gets done.

#include <tarvik/Host.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKSettingsManager.h"

#include <cstdio>

int main() {
    // A desktop host has no Info.plist: it names itself.
    tarvik::setMainBundleInfo({{"CFBundleIdentifier", "com.tarvikhq.demo"},
                               {"CFBundleName", "Tarvik Demo"},
                               {"CFBundleExecutable", "tarvik_demo"},
                               {"CFBundleShortVersionString", "1.0"},
                               {"CFBundleVersion", "1"}});

    tarvik::Tarvik& sdk =
        tarvik::Tarvik::startWithAPIKey("demo-api-key", tarvik::TarvikProcessTypeManual, true);

    // The settings file is made on first use; the demo looks at it straight away.
    tarvik::TVKSettingsManager::sharedInstance();

    tarvik::runMainLoop(0.2);
    std::printf("demo: started SDK version %s, process type %lld, debug %s\n",
                sdk.version().value_or("(none)").c_str(), sdk.processType(),
                sdk.debug() ? "on" : "off");
    return 0;
}
