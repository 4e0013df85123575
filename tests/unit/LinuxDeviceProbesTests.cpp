#include <tarvik/Host.h>

#include "Helpers/TVKMemoryManager.h"
#include "Platform/Linux/LinuxDeviceProbes.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/Files.h"

#include <cstdlib>
#include <filesystem>

#include <unistd.h>

#include <gtest/gtest.h>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using testing::TestRuntime;
using testsupport::runPython;

// What Python prints, without the final line break; a test failure when it fails.
std::string pythonOutput(const std::string& script, const std::string& arguments = "") {
    auto result = runPython(script, arguments);
    EXPECT_EQ(result.exitCode, 0) << script << ": " << result.output;
    return result.output.substr(0, result.output.find_last_not_of('\n') + 1);
}

// Writes a stand-in system file, creating the folders it sits in.
void writeFileCreatingFolders(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    testsupport::writeFile(path, text);
}

LinuxDeviceProbes probesFor(const std::string& bundleIdentifier,
                            LinuxDeviceProbes::SystemFiles files = {}) {
    return LinuxDeviceProbes([bundleIdentifier] { return bundleIdentifier; }, std::move(files));
}

TEST(LinuxDeviceProbes, MemoryAndResidentSizeAgreeWithProc) {
    TestRuntime test;
    auto probes = probesFor("com.example.host");
    auto statistics = probes.memoryStatistics();
    ASSERT_TRUE(statistics.has_value() && probes.residentSize().has_value());
    // The total is exact (the kernel counts kibibytes); the rest moves while the test runs.
    auto python = runPython(
        R"(import sys
def bytes_of(path, name):
    return next(int(l.split()[1]) for l in open(path) if l.startswith(name + ':')) * 1024
used, free, resident = map(int, sys.argv[1:4])
assert used > 0 and used + free == bytes_of('/proc/meminfo', 'MemTotal'), (used, free)
assert abs(free - bytes_of('/proc/meminfo', 'MemAvailable')) < 256 << 20, free
assert abs(resident - bytes_of(f'/proc/{sys.argv[4]}/status', 'VmRSS')) < 16 << 20, resident
)",
        std::to_string(statistics->usedBytes) + " " + std::to_string(statistics->freeBytes) + " " +
            std::to_string(*probes.residentSize()) + " " + std::to_string(::getpid()));
    EXPECT_EQ(python.exitCode, 0) << python.output;
}

TEST(LinuxDeviceProbes, MachineSystemAndNameAgreeWithPython) {
    TestRuntime test;
    auto probes = probesFor("com.example.host");
    EXPECT_EQ(probes.hardwareMachine() + " " + probes.operatingSystemVersionString().value_or("-") +
                  " " + probes.deviceName(),
              pythonOutput("import os; u = os.uname(); print(u.machine, u.sysname, u.release, "
                           "u.nodename)"));
}

TEST(LinuxDeviceProbes, LocaleFromTheEnvironmentInPrecedenceOrder) {
    TestRuntime test;
    auto probes = probesFor("com.example.host");
    struct Case {
        const char* all;
        const char* messages;
        const char* lang;
        std::optional<std::string> language, country;
    };
    for (const Case& c : std::vector<Case>{
             {nullptr, nullptr, "en_US.UTF-8", "en", "US"},
             {nullptr, nullptr, "de_AT@euro", "de", "AT"},  // a modifier without a codeset
             {nullptr, nullptr, "pt", "pt", std::nullopt},
             {nullptr, "fr_CA.UTF-8", "en_US.UTF-8", "fr", "CA"},
             {"sv_FI", "fr_CA.UTF-8", "en_US.UTF-8", "sv", "FI"},
             {"", "", "et_EE.UTF-8", "et", "EE"},  // empty variables do not count
             {nullptr, nullptr, "en_", "en", std::nullopt},
             {nullptr, nullptr, "POSIX", std::nullopt, std::nullopt},
             {nullptr, nullptr, "C.UTF-8", std::nullopt, std::nullopt},
             {"C", nullptr, "en_US.UTF-8", std::nullopt, std::nullopt},
             {nullptr, nullptr, nullptr, std::nullopt, std::nullopt},
         }) {
        SCOPED_TRACE(::testing::Message() << c.all << "|" << c.messages << "|" << c.lang);
        for (auto [name, value] : {std::pair{"LC_ALL", c.all}, std::pair{"LC_MESSAGES", c.messages},
                                   std::pair{"LANG", c.lang}}) {
            value ? setenv(name, value, 1) : unsetenv(name);
        }
        EXPECT_EQ(probes.localeLanguageCode(), c.language);
        EXPECT_EQ(probes.localeCountryCode(), c.country);
    }
}

TEST(LinuxDeviceProbes, BatteryIsTheFirstBatteryByNameWhileMonitoring) {
    TestRuntime test;
    std::string supplies = test.root() + "/power_supply";
    for (auto [file, text] :
         {std::pair{"AC/type", "Mains"}, std::pair{"AC/online", "1"},
          std::pair{"BAT1/type", "Battery"}, std::pair{"BAT1/capacity", "87"},
          std::pair{"BAT1/status", "Charging"}, std::pair{"BAT0/type", "Battery"},
          std::pair{"BAT0/capacity", "42"}}) {
        writeFileCreatingFolders(supplies + "/" + file, std::string(text) + "\n");
    }
    auto probes = probesFor("com.example.host", {.powerSupplyFolder = supplies});
    EXPECT_EQ(probes.batteryStatus().level, -1.0);  // monitoring is off

    probes.setBatteryMonitoringEnabled(true);
    for (auto [status, state] :
         {std::pair{"Discharging", BatteryState::Unplugged},
          std::pair{"Not charging", BatteryState::Unplugged},
          std::pair{"Charging", BatteryState::Charging}, std::pair{"Full", BatteryState::Full},
          std::pair{"Unknown", BatteryState::Unknown}}) {
        writeFileCreatingFolders(supplies + "/BAT0/status", std::string(status) + "\n");
        BatteryStatus battery = probes.batteryStatus();
        EXPECT_DOUBLE_EQ(battery.level, 0.42) << status;
        EXPECT_EQ(battery.state, state) << status;
    }

    fs::remove_all(supplies);
    EXPECT_EQ(probes.batteryStatus().level, -1.0);  // no battery left
    EXPECT_EQ(probes.batteryStatus().state, BatteryState::Unknown);
}

TEST(LinuxDeviceProbes, VendorIdentifierIsPythonsUuid5PerApplicationAndMachine) {
    TestRuntime test;
    std::string machineIdFile = test.root() + "/machine-id";
    auto mail = probesFor("com.example.mail", {.machineIdFile = machineIdFile});
    auto maps = probesFor("com.example.maps", {.machineIdFile = machineIdFile});
    std::string withoutMachineId = mail.identifierForVendor();
    writeFileCreatingFolders(machineIdFile, "3d1219c7c4c5404aaa1f6d2a48adfda4\n");
    EXPECT_NE(maps.identifierForVendor(), mail.identifierForVendor());
    // Without a machine identifier the nil UUID stands in.
    EXPECT_EQ(mail.identifierForVendor() + " " + withoutMachineId,
              pythonOutput("import uuid; print(*(str(uuid.uuid5(uuid.UUID(m), 'com.example.mail'))"
                           ".upper() for m in ('3d1219c7c4c5404aaa1f6d2a48adfda4', '0' * 32)))"));
}

// Whether this kernel lets this process arm a memory-pressure trigger.
bool pressureTriggersAvailable() {
    return runPython(R"(import os
fd = os.open('/proc/pressure/memory', os.O_RDWR | os.O_NONBLOCK)
os.write(fd, b'some 150000 2000000\0')
)")
               .exitCode == 0;
}

TEST(LinuxPlatformMemoryWatching, ARuntimeWatchingMemoryShutsDownCleanly) {
    TestRuntime test;
    bool available = pressureTriggersAvailable();
    auto runtime = std::make_unique<Runtime>(makeDefaultPlatform());
    Runtime* previous = Runtime::exchangeCurrent(runtime.get());
    TVKMemoryManager::beginWatchingMemory();
    auto& probes = static_cast<LinuxDeviceProbes&>(runtime->platform().device());
    EXPECT_EQ(probes.isWatchingMemoryPressure(), available);
    EXPECT_FALSE(probes.lastKnownLocation().has_value());
    setUserLocation(48.8566, 2.3522);  // the host's location reaches the Linux probes
    EXPECT_EQ(probes.lastKnownLocation()->latitude, 48.8566);
    runtime.reset();  // joins the pressure thread; a hang here fails by the test's time limit
    Runtime::exchangeCurrent(previous);
}

}  // namespace
}  // namespace tarvik
