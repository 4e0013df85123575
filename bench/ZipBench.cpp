// Packing a 10 MB log into an archive, as the SDK does for attachments.
#include "GeneratedLog.h"

#include "Helpers/TVKFileHelper.h"
#include "Helpers/Tarvik_ZipFile.h"
#include "Platform/Testing/TestRuntime.h"

#include <benchmark/benchmark.h>

#include <sys/stat.h>
#include <fstream>

namespace {

using tarvik::testing::TestRuntime;

constexpr size_t kLogBytes = 10'000'000;

const std::string& logText() {
    static const std::string text = tarvik::bench::generatedLogText(kLogBytes);
    return text;
}

double fileSize(const std::string& path) {
    struct stat info {};
    ::stat(path.c_str(), &info);
    return static_cast<double>(info.st_size);
}

// The SDK's own path: 1024-byte chunks at level 9.
void BM_ZipFileAtPath(benchmark::State& state) {
    TestRuntime runtime;
    std::string source = runtime.root() + "/log.txt";
    std::string archive = runtime.root() + "/temp.zip";
    std::ofstream(source, std::ios::binary) << logText();
    for (auto _ : state) {
        if (!tarvik::TVKFileHelper::zipFileAtPath(source, archive)) {
            state.SkipWithError("zipFileAtPath failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kLogBytes));
    state.counters["ratio"] = fileSize(archive) / kLogBytes;
}
BENCHMARK(BM_ZipFileAtPath)->Unit(benchmark::kMillisecond);

// The same text written from memory with a chosen chunk size and level, to tell how much of
// the time the level costs and how much the small chunks do.
void BM_ZipWriteFromMemory(benchmark::State& state) {
    TestRuntime runtime;
    auto chunk = static_cast<size_t>(state.range(0));
    auto level = static_cast<std::int32_t>(state.range(1));
    std::string archive = runtime.root() + "/temp.zip";
    const std::string& text = logText();
    for (auto _ : state) {
        tarvik::Tarvik_ZipFile zip(archive, tarvik::Tarvik_ZipFileModeCreate);
        auto entry = zip.writeFileInZipWithName("log.txt", level);
        for (size_t offset = 0; offset < text.size(); offset += chunk) {
            size_t length = std::min(chunk, text.size() - offset);
            entry->writeBytes(text.data() + offset, static_cast<std::uint32_t>(length));
        }
        entry->finishedWriting();
        zip.close();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kLogBytes));
    state.counters["ratio"] = fileSize(archive) / kLogBytes;
}
BENCHMARK(BM_ZipWriteFromMemory)
    ->ArgNames({"chunk", "level"})
    ->Args({1024, 9})
    ->Args({65536, 9})
    ->Args({1024, 6})
    ->Args({1024, 1})
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
