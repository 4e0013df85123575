// A driver for bench/compare_delivery.sh: events recorded through the public interface and
// delivered over HTTPS to a running collector (tools/collector), timed from each recordEvent
// call until the collector has stored the event. Runs on the Linux platform in the folders the
// environment names (HOME, XDG_CACHE_HOME, ...), by default in debug mode, so that every sent
// submission stays in events/Sent with the body it was sent as (`--debug off` deletes them, as
// an app's release build does).
//
//   DeliveryDriver --host localhost:PORT --pin BASE64_PIN --ca CA.pem --collector-data DIR
//                  --events N --mode burst|serial [--debug on|off]
//
//   burst   records the N events back to back, then runs the main loop until all are stored:
//           throughput, and latency with the queue's waiting included.
//   serial  records one event, runs the main loop until it is stored, then the next: latency
//           of an event that finds the queue empty.
//
// "Stored" is the moment the collector's DATA_DIR/index.jsonl gets the event's line (it writes
// the line last, just before it answers), seen through inotify by a thread of the driver's own.
// Prints one JSON object: counts, wall time, events per second, latency percentiles, and CPU
// times per event: the main thread's (the recordEvent calls and the main loop's work between
// them), the recordEvent calls' alone, and the whole process's (the background gathering and
// the sending threads with TLS included).

#include <tarvik/Host.h>
#include <tarvik/Pinning.h>
#include <tarvik/Tarvik.h>

#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKSettingsManager.h"
#include "Platform/Runtime.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Layout = tarvik::TVKDirectoryLayout;
using Clock = std::chrono::steady_clock;

constexpr double kTimeLimitSeconds = 600;
const std::string kMessagePrefix = "bench event ";

double seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

double threadCpuSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double processCpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    auto toSeconds = [](const timeval& value) {
        return static_cast<double>(value.tv_sec) + static_cast<double>(value.tv_usec) * 1e-6;
    };
    return toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
}

// Follows the collector's index through inotify and notes when each line arrived.
class IndexWatcher {
  public:
    struct Arrival {
        std::string folder;  // the submission's folder in the collector's data
        Clock::time_point at;
    };

    explicit IndexWatcher(fs::path dataDir)
        : dataDir_(std::move(dataDir)), inotify_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        if (inotify_ < 0 ||
            ::inotify_add_watch(inotify_, dataDir_.c_str(), IN_MODIFY | IN_CREATE) < 0) {
            throw std::runtime_error("cannot watch " + dataDir_.string());
        }
        // Only lines added from now on count.
        std::error_code absent;
        offset_ = fs::file_size(dataDir_ / "index.jsonl", absent);
        offset_ = absent ? 0 : offset_;
        thread_ = std::thread([this] { follow(); });
    }

    ~IndexWatcher() {
        stopping_.store(true);
        thread_.join();
        ::close(inotify_);
    }

    std::size_t count() const {
        std::lock_guard lock(mutex_);
        return arrivals_.size();
    }

    std::vector<Arrival> arrivals() const {
        std::lock_guard lock(mutex_);
        return arrivals_;
    }

  private:
    void follow() {
        char events[4096];
        while (!stopping_.load()) {
            pollfd descriptor{inotify_, POLLIN, 0};
            if (::poll(&descriptor, 1, 20) > 0) {
                while (::read(inotify_, events, sizeof events) > 0) {
                }
                Clock::time_point now = Clock::now();
                readNewLines(now);
            }
        }
        readNewLines(Clock::now());
    }

    void readNewLines(Clock::time_point now) {
        std::ifstream index(dataDir_ / "index.jsonl", std::ios::binary);
        if (!index) {
            return;
        }
        index.seekg(static_cast<std::streamoff>(offset_));
        std::string chunk((std::istreambuf_iterator<char>(index)), {});
        offset_ += chunk.size();
        pending_ += chunk;
        std::size_t added = 0;
        for (std::size_t end; (end = pending_.find('\n')) != std::string::npos;) {
            nlohmann::json entry = nlohmann::json::parse(pending_.substr(0, end));
            pending_.erase(0, end + 1);
            std::lock_guard lock(mutex_);
            arrivals_.push_back({entry.at("path").get<std::string>(), now});
            ++added;
        }
        if (added > 0) {
            // The main loop checks its condition at once instead of at its next wake-up.
            tarvik::Runtime::current().mainQueue().async([] {});
        }
    }

    fs::path dataDir_;
    int inotify_;
    std::uintmax_t offset_ = 0;
    std::string pending_;  // the start of a line not yet complete
    mutable std::mutex mutex_;
    std::vector<Arrival> arrivals_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

struct Options {
    std::string host, pin, ca, collectorData, mode;
    int events = 0;
    bool debug = true;
};

std::optional<Options> parse(int argc, char** argv) {
    std::map<std::string, std::string> given;
    for (int i = 1; i + 1 < argc; i += 2) {
        given[argv[i]] = argv[i + 1];
    }
    auto value = [&](const std::string& name) {
        auto found = given.find(name);
        return found == given.end() ? std::string() : found->second;
    };
    Options options{value("--host"), value("--pin"),
                    value("--ca"),   value("--collector-data"),
                    value("--mode"), std::atoi(value("--events").c_str())};
    // Every option but --debug is required.
    std::size_t known = 6;
    if (given.contains("--debug")) {
        options.debug = value("--debug") == "on";
        known += value("--debug") == "on" || value("--debug") == "off" ? 1 : 0;
    }
    if (argc % 2 == 0 || given.size() != known || options.host.empty() || options.pin.empty() ||
        options.ca.empty() || options.collectorData.empty() || options.events <= 0 ||
        (options.mode != "burst" && options.mode != "serial")) {
        return std::nullopt;
    }
    return options;
}

bool isEmptyFolder(const std::string& folder) {
    std::error_code error;
    return fs::is_empty(folder, error) && !error;
}

double percentile(std::vector<double> values, double fraction) {
    std::sort(values.begin(), values.end());
    // Nearest rank: the smallest value with at least `fraction` of the values at or below it.
    auto rank = static_cast<std::size_t>(std::ceil(fraction * static_cast<double>(values.size())));
    return values[std::max<std::size_t>(rank, 1) - 1];
}

// The event number of a stored submission, from the message the collector stored.
std::optional<int> eventNumber(const std::string& folder) {
    std::ifstream file(fs::path(folder) / "fields.json");
    nlohmann::json fields = nlohmann::json::parse(file, nullptr, false);
    if (!fields.is_object() || !fields.contains("message") || !fields["message"].is_string()) {
        return std::nullopt;
    }
    std::string message = fields["message"].get<std::string>();
    if (!message.starts_with(kMessagePrefix)) {
        return std::nullopt;
    }
    return std::atoi(message.c_str() + kMessagePrefix.size());
}

}  // namespace

int main(int argc, char** argv) {
    std::optional<Options> options = parse(argc, argv);
    if (!options) {
        std::fprintf(stderr,
                     "usage: %s --host localhost:PORT --pin BASE64_PIN --ca CA.pem "
                     "--collector-data DIR --events N --mode burst|serial [--debug on|off]\n",
                     argv[0]);
        return 2;
    }
    tarvik::setMainBundleInfo({{"CFBundleIdentifier", "com.tarvikhq.deliverydriver"},
                               {"CFBundleName", "Delivery Driver"},
                               {"CFBundleExecutable", "DeliveryDriver"},
                               {"CFBundleShortVersionString", "1.0"},
                               {"CFBundleVersion", "1"}});
    tarvik::TarvikDomainName = options->host;
    if (!tarvik::setPinnedDomain("localhost", {options->pin})) {
        std::fprintf(stderr, "not a pin: %s\n", options->pin.c_str());
        return 2;
    }
    tarvik::setTrustedCertificateAuthorities(options->ca);
    tarvik::Tarvik& sdk = tarvik::Tarvik::startWithAPIKey(
        "bench-key", tarvik::TarvikProcessTypeManual, options->debug);
    sdk.setUserIdentifier("bench-user");
    sdk.setString("gold", "plan");
    // A session that ran a while has something in each of the three logs (the banner is in
    // the user-tracking log, console output in the system log).
    TARVIK_LOG(1, "delivery driver: {} events, {} mode", options->events, options->mode);
    std::fprintf(stderr, "delivery driver: starting\n");
    tarvik::Runtime::current().platform().consoleCapture().flush();
    tarvik::runMainLoop(10, [] { return tarvik::TVKSettingsManager::eventSubmissionEnabled(); });
    if (!tarvik::TVKSettingsManager::eventSubmissionEnabled()) {
        std::fprintf(stderr, "event submission is off\n");
        return 1;
    }

    const std::size_t total = static_cast<std::size_t>(options->events);
    IndexWatcher watcher(options->collectorData);
    std::vector<Clock::time_point> recordedAt(total);
    double recordCpu = 0;
    auto record = [&](std::size_t i) {
        double cpuBefore = threadCpuSeconds();
        recordedAt[i] = Clock::now();
        sdk.recordEvent(kMessagePrefix + std::to_string(i), __FILE__, __func__, __LINE__, false);
        recordCpu += threadCpuSeconds() - cpuBefore;
    };
    auto storedAtLeast = [&](std::size_t count) {
        return [&watcher, count] { return watcher.count() >= count; };
    };

    double mainCpuBefore = threadCpuSeconds();
    double processCpuBefore = processCpuSeconds();
    Clock::time_point start = Clock::now();
    if (options->mode == "burst") {
        for (std::size_t i = 0; i < total; ++i) {
            record(i);
        }
        tarvik::runMainLoop(kTimeLimitSeconds, storedAtLeast(total));
    } else {
        for (std::size_t i = 0; i < total; ++i) {
            record(i);
            tarvik::runMainLoop(kTimeLimitSeconds, storedAtLeast(i + 1));
        }
    }
    Clock::time_point end = Clock::now();
    double mainCpu = threadCpuSeconds() - mainCpuBefore;
    double processCpu = processCpuSeconds() - processCpuBefore;
    // The collector stores before it answers: let the last answers be handled, untimed, so
    // that every sent body is in events/Sent for the script.
    tarvik::runMainLoop(30, [] {
        return isEmptyFolder(
                   Layout::statusFolderPath(Layout::Kind::Events, Layout::Status::Queued)) &&
               tarvik::Runtime::current().operationQueue().operationCount() == 0;
    });

    std::vector<IndexWatcher::Arrival> arrivals = watcher.arrivals();
    std::vector<double> latencies;
    std::vector<bool> seen(total, false);
    Clock::time_point lastStored = start;
    for (const IndexWatcher::Arrival& arrival : arrivals) {
        std::optional<int> number = eventNumber(arrival.folder);
        if (!number || *number < 0 || static_cast<std::size_t>(*number) >= total ||
            seen[static_cast<std::size_t>(*number)]) {
            std::fprintf(stderr, "unexpected or repeated submission %s\n", arrival.folder.c_str());
            return 1;
        }
        seen[static_cast<std::size_t>(*number)] = true;
        latencies.push_back(seconds(arrival.at - recordedAt[static_cast<std::size_t>(*number)]));
        lastStored = std::max(lastStored, arrival.at);
    }
    if (latencies.size() != total) {
        std::fprintf(stderr, "only %zu of %zu events were stored\n", latencies.size(), total);
        return 1;
    }
    double wall = seconds(lastStored - start);
    nlohmann::json result = {
        {"mode", options->mode},
        {"debug", options->debug},
        {"events", total},
        {"wall_seconds", wall},
        {"events_per_second", static_cast<double>(total) / wall},
        {"latency_ms_median", percentile(latencies, 0.5) * 1e3},
        {"latency_ms_p99", percentile(latencies, 0.99) * 1e3},
        {"latency_ms_max", percentile(latencies, 1.0) * 1e3},
        {"main_thread_cpu_us_per_event", mainCpu / static_cast<double>(total) * 1e6},
        {"record_call_cpu_us_per_event", recordCpu / static_cast<double>(total) * 1e6},
        {"process_cpu_us_per_event", processCpu / static_cast<double>(total) * 1e6},
        {"loop_seconds", seconds(end - start)},
    };
    std::printf("%s\n", result.dump().c_str());
    return 0;
}
