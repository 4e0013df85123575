#include "DeliveryScenario.h"

#include "IssueReport.h"

#include <tarvik/Host.h>
#include <tarvik/Pinning.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Models/TVKEventSubmission.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/Runtime.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/inotify.h>
#include <unistd.h>

namespace {

// Each option given after the event count, with its values in order ("" for a flag).
using Options = std::map<std::string, std::vector<std::string>>;

std::optional<Options> parseOptions(const std::vector<std::string>& arguments) {
    static const std::set<std::string> flags{"--include-attachments", "--until-delivered",
                                             "--until-queued", "--report-issue"};
    static const std::set<std::string> valued{"--service", "--pin",     "--ca-bundle",
                                              "--api-key", "--message", "--attach",
                                              "--run",     "--shake-x", "--screenshot-into"};
    Options options;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        if (flags.contains(name)) {
            options[name].emplace_back();
        } else if (valued.contains(name) && i + 1 < arguments.size()) {
            options[name].push_back(arguments[++i]);
        } else {
            return std::nullopt;
        }
    }
    return options;
}

std::string lastValue(const Options& options, const std::string& name,
                      const std::string& fallback) {
    auto found = options.find(name);
    return found == options.end() ? fallback : found->second.back();
}

// "UUID STATUS" for every event or issue folder not yet answered for good.
std::vector<std::string> pendingEvents() {
    std::vector<std::string> pending;
    for (const auto& [status, folder] :
         {std::pair{"Processing", tarvik::TVKEventSubmission::processingFolderPath()},
          std::pair{"Queued", tarvik::TVKEventSubmission::queuedFolderPath()},
          std::pair{"Processing", tarvik::TVKIssueSubmission::processingFolderPath()},
          std::pair{"Queued", tarvik::TVKIssueSubmission::queuedFolderPath()}}) {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
            pending.push_back(entry.path().filename().string() + " " + status);
        }
    }
    return pending;
}

// Who the user is and what the host adds to every report, plus something in each of the three
// logs, as a session that ran a while has.
void describeSession(tarvik::Tarvik& sdk) {
    sdk.setUserIdentifier("user-42");
    sdk.setUsername("ann");
    sdk.setUserFullName("Ann Example");
    sdk.setUserEmail("ann@example.com");
    sdk.setString("gold", "plan");
    sdk.setIntValue(3, "cart_items");
    sdk.setBoolValue(true, "beta");
    sdk.setFloatValue(2.5F, "ratio");
    sdk.setDictionary(tarvik::Dictionary{{"step", "payment"}, {"attempt", 2}}, "checkout");
    tarvik::TVKLogger::logMessage("tapped checkout");
    TARVIK_LOG(1, "host debug record {}", 7);
    std::fprintf(stderr, "host console line\n");
    std::fflush(stderr);
    tarvik::Runtime::current().platform().consoleCapture().flush();
}

// What opens the reporter: the host's call, or, as a person would, a shake of the virtual
// accelerometer (its x raw file set to a strong value for as long as the reporter takes to open)
// or a screenshot saved into the screenshots folder, made first if it does not exist.
ReportTrigger reportTrigger(tarvik::Tarvik& sdk, const Options& options) {
    if (options.contains("--shake-x")) {
        std::string rawFile = lastValue(options, "--shake-x", "");
        return {[rawFile] { std::ofstream(rawFile) << "2000\n"; },
                [rawFile] { std::ofstream(rawFile) << "0\n"; }};
    }
    if (options.contains("--screenshot-into")) {
        std::filesystem::path folder = lastValue(options, "--screenshot-into", "");
        return {[folder] {
                    std::filesystem::create_directories(folder);
                    std::ofstream(folder / "Screenshot from 2026-11-25 10-00-00.png")
                        << "\x89PNG\r\n\x1a\n";
                },
                {}};
    }
    return {[&sdk] { sdk.presentReportIssueController(); }, {}};
}

}  // namespace

// Named with external linkage, so that the event's method name and its stack trace's first
// frame can be checked.
__attribute__((noinline)) void recordHostEvent(const std::string& message,
                                               bool includeAttachments) {
    TARVIK_RECORD_EVENT(message, includeAttachments);
    // Not a tail call: this frame stays on the stack the event captures.
    asm volatile("" ::: "memory");
}

int runDeliveryScenario(const std::vector<std::string>& arguments, const Report& report) {
    std::optional<Options> options = parseOptions(arguments);
    if (arguments.empty() || !options) {
        std::fprintf(stderr, "record-events: bad arguments (see tests/host/DeliveryScenario.h)\n");
        return 2;
    }
    int count = std::atoi(arguments[0].c_str());
    tarvik::TarvikDomainName = lastValue(*options, "--service", tarvik::TarvikDomainName);
    std::string hostName = tarvik::TarvikDomainName.substr(0, tarvik::TarvikDomainName.rfind(':'));
    if (options->contains("--pin") && !tarvik::setPinnedDomain(hostName, options->at("--pin"))) {
        std::fprintf(stderr, "host: a pin is not the base64 text of a SHA-256 digest\n");
        return 2;
    }
    if (options->contains("--ca-bundle")) {
        tarvik::setTrustedCertificateAuthorities(options->at("--ca-bundle").back());
    }
    // The icon is found when a copy of the host sits beside a file TestIcon.png.
    tarvik::Dictionary icon{{"CFBundleIconFiles", tarvik::Array{"TestIcon"}}};
    tarvik::setMainBundleInfo(
        {{"CFBundleIdentifier", "com.tarvikhq.testhost"},
         {"CFBundleExecutable", "tarvik_test_host"},
         {"CFBundleName", "Tarvik Test Host"},
         {"CFBundleShortVersionString", "2.5"},
         {"CFBundleVersion", "250"},
         {"CFBundleIcons", tarvik::Dictionary{{"CFBundlePrimaryIcon", icon}}}});
    // The report's trigger decides the process type the SDK starts in.
    tarvik::TarvikProcessType processType =
        options->contains("--shake-x")           ? tarvik::TarvikProcessTypeShake
        : options->contains("--screenshot-into") ? tarvik::TarvikProcessTypeScreenshot
                                                 : tarvik::TarvikProcessTypeManual;
    tarvik::Tarvik& sdk = tarvik::Tarvik::startWithAPIKey(
        lastValue(*options, "--api-key", "test-key"), processType, false);

    // Every folder moved into the events' Queued folder is reported. The kernel keeps each move
    // as an inotify event, so a submission that is sent and deleted at once is still seen.
    int watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    std::string queuedFolder = tarvik::TVKEventSubmission::queuedFolderPath();
    if (watch < 0 ||
        ::inotify_add_watch(watch, queuedFolder.c_str(), IN_MOVED_TO | IN_CREATE) < 0) {
        std::fprintf(stderr, "host: cannot watch %s\n", queuedFolder.c_str());
        return 1;
    }
    std::set<std::string> queued;
    auto poll = [&] {
        alignas(inotify_event) char buffer[16384];
        for (ssize_t length; (length = ::read(watch, buffer, sizeof buffer)) > 0;) {
            for (ssize_t offset = 0; offset < length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
                if ((event->mask & IN_ISDIR) && event->len > 0 &&
                    queued.insert(event->name).second) {
                    report(std::string("queued ") + event->name);
                }
                offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
        return queued.size();
    };

    describeSession(sdk);
    for (const std::string& attachment : (*options)["--attach"]) {
        if (!sdk.addAttachmentWithFileUrl(attachment)) {
            std::fprintf(stderr, "host: attachment %s refused\n", attachment.c_str());
            return 2;
        }
    }
    report("recording");
    for (int i = 0; i < count; ++i) {
        recordHostEvent(fmt::format("{} {}", lastValue(*options, "--message", "host event"), i),
                        options->contains("--include-attachments"));
        poll();
    }
    if (options->contains("--report-issue") &&
        !fileIssueReport(sdk, lastValue(*options, "--message", "host issue"),
                         reportTrigger(sdk, *options), report)) {
        return 1;
    }
    tarvik::runMainLoop(std::atof(lastValue(*options, "--run", "0").c_str()), [&] {
        std::size_t queuedCount = poll();
        return (options->contains("--until-delivered") && pendingEvents().empty()) ||
               (options->contains("--until-queued") &&
                queuedCount >= static_cast<std::size_t>(count));
    });
    poll();
    for (const std::string& pending : pendingEvents()) {
        report("left " + pending);
    }
    report("done");
    return 0;
}
