// Debug records through the facade against the floor its open-append-close rule allows: a plain
// loop that opens the file for appending, writes the same bytes and closes it.

#include <tarvik/Tarvik.h>

#include "Helpers/TVKLogger.h"
#include "Platform/Testing/TestRuntime.h"

#include <benchmark/benchmark.h>

#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

namespace {

// The same bytes the facade writes for one record, for the floor loop.
const std::string kRecord =
    "2026-01-02 03:04:05.000000 2 CheckoutView.cpp pay 118 card declined for order 12345\n";

void FacadeDebugRecord(benchmark::State& state) {
    tarvik::testing::TestRuntime test;
    std::filesystem::create_directories(tarvik::TVKLogger::tempLogsDirectory());
    tarvik::Tarvik& tarvik = tarvik::Tarvik::sharedInstance();
    for (auto _ : state) {
        tarvik.logMessage("card declined for order 12345", 2, "/src/app/CheckoutView.cpp", "pay",
                          118);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(FacadeDebugRecord)->Unit(benchmark::kMicrosecond);

void OpenAppendWriteCloseFloor(benchmark::State& state) {
    tarvik::testing::TestRuntime test;
    std::string path = test.root() + "/floor.txt";
    std::uint64_t appends = 0;
    for (auto _ : state) {
        int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        benchmark::DoNotOptimize(::write(fd, kRecord.data(), kRecord.size()));
        ::close(fd);
        // The same 100000-byte bound the logger keeps, so both write into files of one size.
        if (++appends % 500 == 0 && std::filesystem::file_size(path) > 100000) {
            ::truncate(path.c_str(), 0);
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(OpenAppendWriteCloseFloor)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
