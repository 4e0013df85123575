#include "DeliveryScenario.h"

#include <tarvik/Host.h>
#include <tarvik/Pinning.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Helpers/TVKSettingsManager.h"
#include "Models/TVKEventSubmission.h"
#include "Platform/Runtime.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

struct DeliveryOptions {
    int count = 0;
    std::string service;
    std::vector<std::string> pins;
    std::string caBundle;
    std::string apiKey = "test-key";
    std::string message = "host event";
    std::vector<std::string> attachments;
    bool includeAttachments = false;
    std::string icon;
    bool debug = false;
    double waitEnabled = 0;
    double interval = 0;
    double run = 0;
    bool untilDelivered = false;
};

std::optional<DeliveryOptions> parseOptions(const std::string& scenario,
                                            const std::vector<std::string>& arguments) {
    DeliveryOptions options;
    std::size_t i = 0;
    if (scenario == "deliver") {
        options.untilDelivered = true;
    } else {
        if (arguments.empty()) {
            return std::nullopt;
        }
        options.count = std::atoi(arguments[i++].c_str());
    }
    for (; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "--include-attachments") {
            options.includeAttachments = true;
            continue;
        }
        if (option == "--debug") {
            options.debug = true;
            continue;
        }
        if (option == "--until-delivered") {
            options.untilDelivered = true;
            continue;
        }
        if (i + 1 >= arguments.size()) {
            return std::nullopt;
        }
        const std::string& value = arguments[++i];
        if (option == "--service") {
            options.service = value;
        } else if (option == "--pin") {
            options.pins.push_back(value);
        } else if (option == "--ca-bundle") {
            options.caBundle = value;
        } else if (option == "--api-key") {
            options.apiKey = value;
        } else if (option == "--message") {
            options.message = value;
        } else if (option == "--attach") {
            options.attachments.push_back(value);
        } else if (option == "--icon") {
            options.icon = value;
        } else if (option == "--wait-enabled") {
            options.waitEnabled = std::atof(value.c_str());
        } else if (option == "--interval") {
            options.interval = std::atof(value.c_str());
        } else if (option == "--run") {
            options.run = std::atof(value.c_str());
        } else {
            return std::nullopt;
        }
    }
    return options;
}

// Lines written straight to the standard output the host was started with, bypassing the SDK's
// console capture, so that a line is in the pipe the moment it is written, even if the process
// is killed right after.
class Report {
  public:
    Report() : fd_(::dup(STDOUT_FILENO)) {}
    ~Report() { ::close(fd_); }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    void line(const std::string& text) const {
        std::string bytes = text + "\n";
        std::size_t done = 0;
        while (done < bytes.size()) {
            ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
            if (n <= 0) {
                return;
            }
            done += static_cast<std::size_t>(n);
        }
    }

  private:
    int fd_;
};

// Reports every folder moved into the events' Queued folder. The kernel keeps each move as an
// inotify event, so a submission that is sent and deleted at once is still seen.
class QueuedFolderWatch {
  public:
    QueuedFolderWatch(const Report& report, const std::string& folder)
        : report_(report), fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        if (fd_ < 0 || ::inotify_add_watch(fd_, folder.c_str(), IN_MOVED_TO | IN_CREATE) < 0) {
            std::fprintf(stderr, "host: cannot watch %s\n", folder.c_str());
            std::exit(1);
        }
    }
    ~QueuedFolderWatch() { ::close(fd_); }
    QueuedFolderWatch(const QueuedFolderWatch&) = delete;
    QueuedFolderWatch& operator=(const QueuedFolderWatch&) = delete;

    void poll() {
        alignas(inotify_event) char buffer[16384];
        for (;;) {
            ssize_t length = ::read(fd_, buffer, sizeof buffer);
            if (length <= 0) {
                return;
            }
            for (ssize_t offset = 0; offset < length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
                if ((event->mask & IN_ISDIR) && event->len > 0 &&
                    reported_.insert(event->name).second) {
                    report_.line(std::string("queued ") + event->name);
                }
                offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
    }

  private:
    const Report& report_;
    int fd_;
    std::set<std::string> reported_;
};

// (uuid, status folder name) of every event folder not yet answered for good.
std::vector<std::pair<std::string, std::string>> pendingEvents() {
    std::vector<std::pair<std::string, std::string>> pending;
    for (const auto& [status, folder] :
         {std::pair<std::string, std::string>{"Processing",
                                              tarvik::TVKEventSubmission::processingFolderPath()},
          {"Queued", tarvik::TVKEventSubmission::queuedFolderPath()}}) {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
            if (entry.is_directory(error)) {
                pending.emplace_back(entry.path().filename().string(), status);
            }
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

}  // namespace

// Named with external linkage, so that the event's method name and its stack trace's first
// frame can be checked.
__attribute__((noinline)) void recordHostEvent(const std::string& message,
                                               bool includeAttachments) {
    TARVIK_RECORD_EVENT(message, includeAttachments);
    // Not a tail call: this frame stays on the stack the event captures.
    asm volatile("" ::: "memory");
}

namespace {

int play(const DeliveryOptions& options) {
    Report report;
    if (!options.service.empty()) {
        tarvik::TarvikDomainName = options.service;
    }
    std::string hostName = tarvik::TarvikDomainName.substr(0, tarvik::TarvikDomainName.rfind(':'));
    if (!options.pins.empty() && !tarvik::setPinnedDomain(hostName, options.pins)) {
        std::fprintf(stderr, "host: a pin is not the base64 text of a SHA-256 digest\n");
        return 2;
    }
    if (!options.caBundle.empty()) {
        tarvik::setTrustedCertificateAuthorities(options.caBundle);
    }
    tarvik::Dictionary bundle{{"CFBundleIdentifier", "com.tarvikhq.testhost"},
                              {"CFBundleExecutable", "tarvik_test_host"},
                              {"CFBundleName", "Tarvik Test Host"},
                              {"CFBundleShortVersionString", "2.5"},
                              {"CFBundleVersion", "250"}};
    if (!options.icon.empty()) {
        bundle["CFBundleIcons"] = tarvik::Dictionary{
            {"CFBundlePrimaryIcon",
             tarvik::Dictionary{{"CFBundleIconFiles", tarvik::Array{options.icon}}}}};
    }
    tarvik::setMainBundleInfo(std::move(bundle));
    tarvik::Tarvik& sdk = tarvik::Tarvik::startWithAPIKey(
        options.apiKey, tarvik::TarvikProcessTypeManual, options.debug);
    QueuedFolderWatch watch(report, tarvik::TVKEventSubmission::queuedFolderPath());

    if (options.waitEnabled > 0) {
        tarvik::runMainLoop(options.waitEnabled, [&] {
            watch.poll();
            return tarvik::TVKSettingsManager::eventSubmissionEnabled();
        });
        if (!tarvik::TVKSettingsManager::eventSubmissionEnabled()) {
            std::fprintf(stderr, "host: the service did not enable events in time\n");
            return 3;
        }
        report.line("enabled");
    }
    describeSession(sdk);
    for (const std::string& attachment : options.attachments) {
        if (!sdk.addAttachmentWithFileUrl(attachment)) {
            std::fprintf(stderr, "host: attachment %s refused\n", attachment.c_str());
            return 2;
        }
    }

    report.line("recording");
    for (int i = 0; i < options.count; ++i) {
        recordHostEvent(fmt::format("{} {}", options.message, i), options.includeAttachments);
        watch.poll();
        if (options.interval > 0) {
            tarvik::runMainLoop(options.interval, [&] {
                watch.poll();
                return false;
            });
        }
    }
    tarvik::runMainLoop(options.run, [&] {
        watch.poll();
        return options.untilDelivered && pendingEvents().empty();
    });
    watch.poll();
    for (const auto& [uuid, status] : pendingEvents()) {
        report.line("left " + uuid + " " + status);
    }
    report.line("done");
    return 0;
}

}  // namespace

int runDeliveryScenario(const std::string& scenario, const std::vector<std::string>& arguments) {
    std::optional<DeliveryOptions> options = parseOptions(scenario, arguments);
    if (!options) {
        std::fprintf(stderr, "%s: bad arguments (see tests/host/DeliveryScenario.h)\n",
                     scenario.c_str());
        return 2;
    }
    return play(*options);
}
