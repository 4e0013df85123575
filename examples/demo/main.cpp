// A small host application: it points the SDK at a reporting service, starts it the way an app
// would, in debug mode, tells it who the user is, records a few events and runs its main loop
// until they are delivered, then shows what the SDK's logs caught.
//
//   tarvik_demo --host localhost:PORT --pin BASE64_PIN --ca CA.pem [--time-limit SECONDS]
//
// The first three may also come from TARVIK_DEMO_HOST, TARVIK_DEMO_PIN and TARVIK_DEMO_CA; the
// time limit (default 60 s) bounds the wait for the events' delivery.

#include <tarvik/Host.h>
#include <tarvik/Pinning.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKLogger.h"
#include "Helpers/TVKSettingsManager.h"
#include "Platform/Runtime.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Layout = tarvik::TVKDirectoryLayout;

struct Service {
    std::string host;               // "localhost:PORT"
    std::string pin;                // base64 SHA-256 of the server key
    std::string ca;                 // PEM bundle the server's chain is verified against
    double deliveryTimeLimit = 60;  // seconds the demo waits for its events to be delivered
};

std::optional<Service> serviceFrom(int argc, char** argv) {
    std::map<std::string, std::string> options;
    auto fromEnvironment = [&](const char* option, const char* variable) {
        if (const char* value = std::getenv(variable)) {
            options[option] = value;
        }
    };
    fromEnvironment("--host", "TARVIK_DEMO_HOST");
    fromEnvironment("--pin", "TARVIK_DEMO_PIN");
    fromEnvironment("--ca", "TARVIK_DEMO_CA");
    for (int i = 1; i + 1 < argc; i += 2) {
        options[argv[i]] = argv[i + 1];
    }
    auto option = [&](const std::string& name) {
        auto found = options.find(name);
        return found == options.end() ? std::string() : found->second;
    };
    Service service{option("--host"), option("--pin"), option("--ca")};
    std::size_t known = 3;
    if (options.contains("--time-limit")) {
        service.deliveryTimeLimit = std::atof(option("--time-limit").c_str());
        ++known;
    }
    if (argc % 2 == 0 || options.size() != known || service.host.empty() || service.pin.empty() ||
        service.ca.empty() || service.deliveryTimeLimit <= 0) {
        return std::nullopt;
    }
    return service;
}

std::size_t entriesIn(const std::string& folder) {
    std::error_code error;
    std::size_t count = 0;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        ++count;
    }
    return count;
}

std::size_t eventsIn(Layout::Status status) {
    return entriesIn(Layout::statusFolderPath(Layout::Kind::Events, status));
}

// Nothing is gathering its files, waiting in the queue or being sent.
bool allEventsSettled() {
    return eventsIn(Layout::Status::Processing) == 0 && eventsIn(Layout::Status::Queued) == 0 &&
           tarvik::Runtime::current().operationQueue().operationCount() == 0;
}

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

// A file of the app's own that every event recorded with attachments carries.
std::string writeAttachment() {
    std::string path = Layout::cacheFolderPath() + "/../demo-cart.txt";
    std::ofstream(path) << "cart: 2 items\nsku-1 x1\nsku-7 x3\n";
    return fs::weakly_canonical(path).string();
}

}  // namespace

int main(int argc, char** argv) {
    std::optional<Service> service = serviceFrom(argc, argv);
    if (!service) {
        std::fprintf(stderr,
                     "usage: %s --host localhost:PORT --pin BASE64_PIN --ca CA.pem"
                     " [--time-limit SECONDS]\n"
                     "  (or TARVIK_DEMO_HOST, TARVIK_DEMO_PIN, TARVIK_DEMO_CA)\n",
                     argv[0]);
        return 2;
    }

    // A desktop host has no Info.plist: it names itself.
    tarvik::setMainBundleInfo({{"CFBundleIdentifier", "com.tarvikhq.demo"},
                               {"CFBundleName", "Tarvik Demo"},
                               {"CFBundleExecutable", "tarvik_demo"},
                               {"CFBundleShortVersionString", "1.0"},
                               {"CFBundleVersion", "1"}});
    // The service, and the key and authorities its connections must show, before the start.
    tarvik::TarvikDomainName = service->host;
    if (!tarvik::setPinnedDomain("localhost", {service->pin})) {
        std::fprintf(stderr, "demo: %s is not a base64 SHA-256 pin\n", service->pin.c_str());
        return 2;
    }
    tarvik::setTrustedCertificateAuthorities(service->ca);

    tarvik::Tarvik& sdk =
        tarvik::Tarvik::startWithAPIKey("demo-api-key", tarvik::TarvikProcessTypeManual, true);
    sdk.setUserIdentifier("demo-user");
    sdk.setUserFullName("Dana Demo");
    sdk.setUserEmail("dana@example.com");
    sdk.setString("gold", "plan");
    sdk.setIntValue(2, "cart_items");
    sdk.setBoolValue(true, "beta");
    std::string attachment = writeAttachment();
    if (!sdk.addAttachmentWithFileUrl(attachment)) {
        std::fprintf(stderr, "demo: the SDK refused the attachment %s\n", attachment.c_str());
        return 1;
    }

    // The app's own console output: captured into the system log and still shown here.
    std::cout << "demo: hello from standard output" << std::endl;
    std::cerr << "demo: a warning on standard error (unicode: café ✓)" << std::endl;
    TARVIK_LOG(2, "checkout finished in {} ms", 1234);

    // Events are recorded only while the service has the feature on.
    tarvik::runMainLoop(10, [] { return tarvik::TVKSettingsManager::eventSubmissionEnabled(); });
    if (!tarvik::TVKSettingsManager::eventSubmissionEnabled()) {
        std::fprintf(stderr, "demo: the service has events switched off\n");
        return 1;
    }
    TARVIK_RECORD_EVENT("checkout failed", true);
    TARVIK_RECORD_EVENT("coupon rejected", false);
    TARVIK_RECORD_EVENT("payment retried", true);
    tarvik::runMainLoop(service->deliveryTimeLimit, allEventsSettled);

    // Everything written so far has reached the logs before they are read.
    tarvik::Runtime::current().platform().consoleCapture().flush();
    std::shared_ptr<tarvik::TVKLogger> logger = tarvik::TVKLogger::sharedInstance();
    std::size_t sent = eventsIn(Layout::Status::Sent);
    std::size_t pending = eventsIn(Layout::Status::Processing) + eventsIn(Layout::Status::Queued);
    std::printf("\ndemo: SDK version %s, process type %lld, debug %s\n",
                sdk.version().value_or("(none)").c_str(), sdk.processType(),
                sdk.debug() ? "on" : "off");
    std::printf("demo: events sent %zu, still pending %zu (service %s)\n", sent, pending,
                service->host.c_str());
    showLog("user tracking log", logger->userTrackingLogFilePath());
    showLog("system log", logger->systemLogFilePath());
    showLog("debug log", logger->debugLogFilePath());
    return sent == 3 && pending == 0 ? 0 : 1;
}
