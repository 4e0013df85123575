// Submissions on disk: what gathering one event's files costs against plainly copying the same
// 14 files, and how the scan for pending submissions grows with the number of queued folders.

#include "SubmissionFiles.h"

#include <tarvik/Tarvik.h>

#include "Helpers/NSUserDefaults+Tarvik.h"
#include "Helpers/TVKFileHelper.h"
#include "Helpers/TVKLogger.h"
#include "Models/TVKEventSubmission.h"
#include "Models/TVKIssueSubmission.h"
#include "Platform/PropertyList.h"
#include "Platform/Testing/TestRuntime.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <stdlib.h>

namespace {

namespace fs = std::filesystem;
using tarvik::testing::TestRuntime;

std::uintmax_t bytesIn(const std::vector<std::string>& paths) {
    std::uintmax_t total = 0;
    for (const std::string& path : paths) {
        total += fs::file_size(path);
    }
    return total;
}

std::size_t regularFilesBelow(const std::string& folder) {
    std::size_t count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        count += entry.is_regular_file() ? 1 : 0;
    }
    return count;
}

// A started SDK with full logs, the host's defaults and ten host files; it also keeps, for the
// plain copy, the defaults file exactly as the SDK writes it.
class GatheringSetUp {
  public:
    GatheringSetUp() {
        tarvik::Tarvik::startWithAPIKey("bench-key", tarvik::TarvikProcessTypeManual, false);
        tarvik::bench::writeFullLogs(tarvik::TVKLogger::tempLogsDirectory());
        std::string bundle =
            test.platform().mainBundle().bundleIdentifier().value_or("com.example.host");
        test.platform().userDefaults().setPersistentDomain(tarvik::bench::hostDefaultsDomain(),
                                                           bundle);
        std::string host = test.root() + "/host";
        fs::create_directories(host);
        attachments = tarvik::bench::writeAttachments(host);

        std::string defaults = host + "/user_defaults.json";
        tarvik::TVKFileHelper::writeDictionary(tarvik::tarvik_userDefaults(), defaults);
        for (const std::string& name : tarvik::bench::logFileNames()) {
            tarvikFiles.push_back(tarvik::TVKLogger::tempLogsDirectory() + "/" + name);
        }
        tarvikFiles.push_back(defaults);
    }

    std::uintmax_t bytes() const { return bytesIn(tarvikFiles) + bytesIn(attachments); }

    TestRuntime test;
    std::vector<std::string> tarvikFiles;  // the logs and the defaults file
    std::vector<std::string> attachments;
};

// One event: created in Processing, files gathered on the global queue, waited for.
std::shared_ptr<tarvik::TVKEventSubmission> gatherOneEvent(GatheringSetUp& setUp) {
    auto event = tarvik::TVKEventSubmission::create();
    event->setIncludeEventAttachments(true);
    for (const std::string& attachment : setUp.attachments) {
        event->attachFileFromUrl(attachment);
    }
    std::atomic<bool> completed{false};
    event->copyAllFilesWithCompletionHandler([&](auto) { completed = true; });
    setUp.test.drain();
    return completed ? event : nullptr;
}

void GatherEventFiles(benchmark::State& state) {
    GatheringSetUp setUp;
    // The 14 files plus the stack the event records: anything less means the timing below
    // would leave out work.
    auto first = gatherOneEvent(setUp);
    if (!first || regularFilesBelow(first->tarvikAttachmentsFolderPath()) +
                          regularFilesBelow(first->userAttachmentsFolderPath()) !=
                      tarvik::bench::kGatheredFileCount + 1) {
        state.SkipWithError("the gathered folder does not hold the expected files");
        return;
    }
    fs::remove_all(*first->submissionFolderPath());

    for (auto _ : state) {
        auto event = gatherOneEvent(setUp);
        state.PauseTiming();
        if (!event) {
            state.SkipWithError("the gathering did not complete");
            break;
        }
        fs::remove_all(*event->submissionFolderPath());
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * setUp.bytes()));
}
// Wall time, and the CPU time of the whole process, since the gathering runs on a pool thread.
BENCHMARK(GatherEventFiles)->Unit(benchmark::kMicrosecond)->UseRealTime()->MeasureProcessCPUTime();

// The floor: the same 14 files copied into a fresh folder of the same shape, on this thread.
void CopyFilesFloor(benchmark::State& state) {
    GatheringSetUp setUp;
    std::string target = setUp.test.root() + "/copies";
    for (auto _ : state) {
        fs::create_directories(target + "/tarvik_attachments");
        fs::create_directories(target + "/user_attachments");
        for (const std::string& file : setUp.tarvikFiles) {
            fs::copy_file(file,
                          target + "/tarvik_attachments/" + fs::path(file).filename().string());
        }
        for (const std::string& file : setUp.attachments) {
            fs::copy_file(file, target + "/user_attachments/" + fs::path(file).filename().string());
        }
        state.PauseTiming();
        fs::remove_all(target);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * setUp.bytes()));
}
BENCHMARK(CopyFilesFloor)->Unit(benchmark::kMicrosecond)->UseRealTime()->MeasureProcessCPUTime();

// Queued event folders shaped like the SDK's, built once per count in a stock folder of their
// own and lent to each benchmark run by renaming, so that what repeats is the scan and not the
// building.
class QueuedEventsStock {
  public:
    ~QueuedEventsStock() {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    static QueuedEventsStock& shared() {
        static QueuedEventsStock stock;
        return stock;
    }

    // A "Queued" folder holding `count` event folders.
    std::string folderWith(int count) {
        std::string& folder = folders_[count];
        if (folder.empty()) {
            folder = fmt::format("{}/{}/Queued", root_, count);
            build(folder, count);
        }
        return folder;
    }

  private:
    QueuedEventsStock() : root_(fs::temp_directory_path().string() + "/tarvik-queued-XXXXXX") {
        if (!mkdtemp(root_.data())) {
            throw std::runtime_error("cannot make the stock folder");
        }
    }

    static void build(const std::string& queued, int count) {
        // The SDK writes its property lists in the binary format.
        tarvik::Data plist =
            tarvik::plist::toBinary(tarvik::Value(tarvik::Dictionary{
                                        {"plan", "gold"}, {"cart_items", 3}, {"beta", true}}))
                .value_or(tarvik::Data{});
        std::string metadata(plist.begin(), plist.end());
        for (int i = 0; i < count; ++i) {
            std::string folder = fmt::format("{}/{:08X}-5A1E-4B0C-8D2F-{:012X}", queued, i, i * 7);
            fs::create_directories(folder + "/user_attachments");
            fs::create_directories(folder + "/tarvik_attachments");
            for (const char* name : {"user_tracking_logs.txt", "system_logs.txt", "debug_logs.txt",
                                     "user_defaults.json", "stack_trace.json"}) {
                tarvik::bench::writeBytes(folder + "/tarvik_attachments/" + name,
                                          tarvik::bench::generatedLogText(200));
            }
            tarvik::bench::writeBytes(folder + "/httpBody.txt", "");
            tarvik::bench::writeBytes(folder + "/metadata.plist", metadata);
        }
    }

    std::string root_;
    std::map<int, std::string> folders_;
};

// Moves a folder to another path for its lifetime.
class LentFolder {
  public:
    LentFolder(std::string from, std::string to) : from_(std::move(from)), to_(std::move(to)) {
        fs::rename(from_, to_);
    }
    ~LentFolder() { fs::rename(to_, from_); }
    LentFolder(const LentFolder&) = delete;
    LentFolder& operator=(const LentFolder&) = delete;

  private:
    std::string from_;
    std::string to_;
};

void ScanQueuedEvents(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    std::string stock = QueuedEventsStock::shared().folderWith(count);
    TestRuntime test;
    fs::create_directories(tarvik::TVKEventSubmission::submissionTypeFolderPath());
    fs::create_directories(tarvik::TVKIssueSubmission::queuedFolderPath());
    LentFolder queued(stock, tarvik::TVKEventSubmission::queuedFolderPath());
    for (auto _ : state) {
        auto pending = tarvik::TVKSubmission::processCacheFolderForSubmissions();
        if (pending.size() != static_cast<size_t>(count)) {
            state.SkipWithError("the scan did not find every queued folder");
            break;
        }
        benchmark::DoNotOptimize(pending.data());
    }
    state.SetComplexityN(count);
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(ScanQueuedEvents)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

}  // namespace

BENCHMARK_MAIN();
