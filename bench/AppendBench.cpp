// Appending a 50 MB log file with TVKFileHelper::appendFileAtPath, next to plain read/write
// loops at several chunk sizes that show what the fixed 1024-byte chunk costs.
//
// Also serves as the driver of bench/compare_append.sh:
//   AppendBench --append SOURCE TARGET   appends once and exits (status 1 on failure).

#include "Helpers/TVKFileHelper.h"
#include "Platform/Testing/TestRuntime.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::size_t kSourceSize = 50 * 1024 * 1024;

// A source file in a fresh test folder, and a target emptied before every timed append.
class AppendFixture {
  public:
    AppendFixture() : source_(test_.root() + "/source.log"), target_(test_.root() + "/target.log") {
        std::string block(1024 * 1024, '\0');
        for (std::size_t i = 0; i < block.size(); ++i) {
            block[i] = static_cast<char>('a' + i % 26);
        }
        std::ofstream out(source_, std::ios::binary);
        for (std::size_t written = 0; written < kSourceSize; written += block.size()) {
            out << block;
        }
    }
    void emptyTarget() const { std::ofstream(target_, std::ios::trunc); }
    const std::string& source() const { return source_; }
    const std::string& target() const { return target_; }

  private:
    tarvik::testing::TestRuntime test_;
    std::string source_;
    std::string target_;
};

void BM_AppendFileAtPath(benchmark::State& state) {
    AppendFixture files;
    for (auto _ : state) {
        state.PauseTiming();
        files.emptyTarget();
        state.ResumeTiming();
        if (!tarvik::TVKFileHelper::appendFileAtPath(files.source(), files.target())) {
            state.SkipWithError("append failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSourceSize));
}
BENCHMARK(BM_AppendFileAtPath)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same copy with one read and one write per chunk of the given size: the SDK's loop at
// 1024 bytes, and what larger chunks would buy.
void BM_ReadWriteLoop(benchmark::State& state) {
    AppendFixture files;
    std::vector<char> buffer(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        files.emptyTarget();
        state.ResumeTiming();
        int in = ::open(files.source().c_str(), O_RDONLY);
        int out = ::open(files.target().c_str(), O_WRONLY | O_APPEND);
        ssize_t n = 0;
        while ((n = ::read(in, buffer.data(), buffer.size())) > 0) {
            if (::write(out, buffer.data(), static_cast<std::size_t>(n)) != n) {
                state.SkipWithError("write failed");
                break;
            }
        }
        ::close(in);
        ::close(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSourceSize));
}
BENCHMARK(BM_ReadWriteLoop)
    ->Arg(1024)
    ->Arg(64 * 1024)
    ->Arg(1024 * 1024)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "--append") == 0) {
        tarvik::testing::TestRuntime runtime;
        return tarvik::TVKFileHelper::appendFileAtPath(argv[2], argv[3]) ? 0 : 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
