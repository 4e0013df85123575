// What shake detection costs a resting app: the process CPU time while the SDK's main loop runs
// on the Linux platform, first idle and then with shake detection on (its check timer five times
// a second, each check reading a virtual IIO accelerometer made of files in /tmp), extrapolated
// to an hour. The device lies still, so no report opens.
//
//   ShakeAtRestDriver [SECONDS]   (default 20 for each phase)
//
// Prints one JSON object. The folders the SDK may touch (HOME, XDG_*) are pointed into a
// temporary folder, removed at the end.

#include <tarvik/Host.h>

#include "Helpers/TVKShakeDetectionHelper.h"
#include "Platform/Runtime.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <time.h>

namespace {

namespace fs = std::filesystem;

// The scheduler's own count, which unlike getrusage's is not sampled at the timer tick.
double processCpuSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double cpuSecondsWhileRunning(double seconds) {
    double before = processCpuSeconds();
    tarvik::runMainLoop(seconds);
    return processCpuSeconds() - before;
}

}  // namespace

int main(int argc, char** argv) {
    double seconds = argc > 1 ? std::atof(argv[1]) : 20;
    char folder[] = "/tmp/tarvik-shake-at-rest-XXXXXX";
    if (!::mkdtemp(folder)) {
        return 1;
    }
    fs::path root = folder;
    fs::path device = root / "sys/bus/iio/devices/iio:device0";
    fs::create_directories(device);
    for (auto [file, text] : {std::pair{"in_accel_x_raw", "-12"},
                              {"in_accel_y_raw", "7"},
                              {"in_accel_z_raw", "1021"},
                              {"in_accel_scale", "0.009576806"}}) {
        std::ofstream(device / file) << text << "\n";
    }
    ::setenv("TARVIK_SYSFS_ROOT", (root / "sys").c_str(), 1);
    ::setenv("HOME", root.c_str(), 1);
    for (const char* variable : {"XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME"}) {
        ::setenv(variable, (root / variable).c_str(), 1);
    }

    double idle = cpuSecondsWhileRunning(seconds);
    tarvik::TVKShakeDetectionHelper::startDetectingShake();
    tarvik::runMainLoop(1);  // the first checks make what the later ones reuse
    double detecting = cpuSecondsWhileRunning(seconds);
    double checks = seconds / tarvik::TVKShakeDetectionHelper::kCheckInterval;

    nlohmann::json result{
        {"seconds_per_phase", seconds},
        {"checks", checks},
        {"cpu_s_idle", idle},
        {"cpu_s_detecting", detecting},
        {"cpu_us_per_check", (detecting - idle) / checks * 1e6},
        {"cpu_s_per_hour_detecting", detecting / seconds * 3600},
        {"cpu_s_per_hour_idle", idle / seconds * 3600},
    };
    std::printf("%s\n", result.dump(2).c_str());
    tarvik::Runtime::current().platform().shutDown();
    fs::remove_all(root);
    return 0;
}
