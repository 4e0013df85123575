// A small host application: it starts the SDK the way an app would, in debug mode, uses it a
// little, runs its main loop for a moment so that the SDK's main-thread work gets done, and
// shows what the SDK's logs caught.

#include <tarvik/Host.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Helpers/TVKSettingsManager.h"
#include "Platform/Runtime.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

// The last non-empty lines (each console chunk is followed by a line feed of its own, so the
// system log has blank lines between chunks that already ended in one).
std::vector<std::string> lastLines(const std::string& path, size_t count) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty()) {
            lines.push_back(line);
        }
    }
    if (lines.size() > count) {
        lines.erase(lines.begin(), lines.end() - static_cast<long>(count));
    }
    return lines;
}

void showLog(const char* title, const std::string& path) {
    std::printf("%s: %s\n", title, path.c_str());
    for (const std::string& line : lastLines(path, 3)) {
        std::printf("    | %s\n", line.c_str());
    }
}

}  // namespace

int main() {
    // A desktop host has no Info.plist: it names itself.
    tarvik::setMainBundleInfo({{"CFBundleIdentifier", "com.tarvikhq.demo"},
                               {"CFBundleName", "Tarvik Demo"},
                               {"CFBundleExecutable", "tarvik_demo"},
                               {"CFBundleShortVersionString", "1.0"},
                               {"CFBundleVersion", "1"}});

    tarvik::Tarvik& sdk =
        tarvik::Tarvik::startWithAPIKey("demo-api-key", tarvik::TarvikProcessTypeManual, true);
    sdk.setUserIdentifier("demo-user");
    sdk.setString("demo", "build");

    // The app's own console output: captured into the system log and still shown here.
    std::cout << "demo: hello from standard output" << std::endl;
    std::cerr << "demo: a warning on standard error (unicode: café ✓)" << std::endl;
    TARVIK_LOG(2, "checkout finished in {} ms", 1234);

    // The settings file is made on first use; the demo looks at it straight away.
    tarvik::TVKSettingsManager::sharedInstance();
    tarvik::runMainLoop(0.2);

    // Everything written so far has reached the logs before they are read.
    tarvik::Runtime::current().platform().consoleCapture().flush();
    std::shared_ptr<tarvik::TVKLogger> logger = tarvik::TVKLogger::sharedInstance();
    std::printf("\ndemo: SDK version %s, process type %lld, debug %s\n",
                sdk.version().value_or("(none)").c_str(), sdk.processType(),
                sdk.debug() ? "on" : "off");
    showLog("user tracking log", logger->userTrackingLogFilePath());
    showLog("system log", logger->systemLogFilePath());
    showLog("debug log", logger->debugLogFilePath());
    return 0;
}
