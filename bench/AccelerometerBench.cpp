// What shake detection costs at rest: the process CPU time of one accelerometer reading (three
// raw files opened, read and closed under the reader's lock) on a virtual sysfs tree in /tmp,
// against a plain open/read/close of the same three files. Each run also gives the CPU seconds
// an hour of readings at 5 a second would take ("cpu_s_per_hour_at_5Hz"); the timer that wakes
// the detector is not counted. A real accelerometer's driver may add its own work per read
// (a bus transfer), which a tree of files does not have.

#include "Platform/Linux/IioAccelerometer.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// A virtual accelerometer lying flat, removed at the end.
class AccelerometerTree {
  public:
    AccelerometerTree() {
        char folder[] = "/tmp/tarvik-iio-bench-XXXXXX";
        if (!::mkdtemp(folder)) {
            std::abort();
        }
        root_ = folder;
        device_ = root_ + "/bus/iio/devices/iio:device0";
        fs::create_directories(device_);
        for (auto [file, text] : {std::pair{"in_accel_x_raw", "-12"},
                                  {"in_accel_y_raw", "7"},
                                  {"in_accel_z_raw", "1021"},
                                  {"in_accel_scale", "0.009576806"},
                                  {"in_accel_mount_matrix", "0, 1, 0; -1, 0, 0; 0, 0, 1"}}) {
            std::ofstream(device_ + "/" + file) << text << "\n";
        }
    }
    ~AccelerometerTree() { fs::remove_all(root_); }
    const std::string& root() const { return root_; }
    const std::string& device() const { return device_; }

  private:
    std::string root_, device_;
};

double processCpuSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Per-read microseconds and the CPU seconds an hour at 5 reads a second, from the loop's CPU time.
void setCounters(benchmark::State& state, double cpuSeconds) {
    double perRead = cpuSeconds / static_cast<double>(state.iterations());
    state.counters["us_per_read"] = perRead * 1e6;
    state.counters["cpu_s_per_hour_at_5Hz"] = perRead * 5 * 3600;
}

void AccelerometerRead(benchmark::State& state) {
    AccelerometerTree tree;
    tarvik::IioAccelerometer accelerometer(tree.root());
    if (!accelerometer.read()) {  // finds the device, outside the measured loop
        state.SkipWithError("the virtual accelerometer gives no reading");
        return;
    }
    double start = processCpuSeconds();
    for (auto _ : state) {
        benchmark::DoNotOptimize(accelerometer.read());
    }
    setCounters(state, processCpuSeconds() - start);
}
BENCHMARK(AccelerometerRead)->Unit(benchmark::kMicrosecond);

void OpenReadCloseFloor(benchmark::State& state) {
    AccelerometerTree tree;
    std::string paths[] = {tree.device() + "/in_accel_x_raw", tree.device() + "/in_accel_y_raw",
                           tree.device() + "/in_accel_z_raw"};
    char buffer[256];
    double start = processCpuSeconds();
    for (auto _ : state) {
        for (const std::string& path : paths) {
            int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
            benchmark::DoNotOptimize(::read(fd, buffer, sizeof buffer));
            ::close(fd);
        }
    }
    setCounters(state, processCpuSeconds() - start);
}
BENCHMARK(OpenReadCloseFloor)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
