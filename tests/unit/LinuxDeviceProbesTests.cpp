#include <tarvik/Host.h>

#include "Helpers/TVKMemoryManager.h"
#include "Platform/Linux/LinuxDeviceProbes.h"
#include "Platform/Linux/MemoryPressureWatcher.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using testing::TestRuntime;
using testsupport::runCommand;
using testsupport::runPython;
using testsupport::shellQuoted;

constexpr double kMebibyte = 1024.0 * 1024.0;

std::string outputOf(const std::string& command) {
    auto result = runCommand(command);
    EXPECT_EQ(result.exitCode, 0) << command << ": " << result.output;
    std::string text = result.output;
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
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

// /proc/meminfo as the test reads it itself, in bytes.
std::int64_t meminfoBytes(const std::string& name) {
    std::ifstream in("/proc/meminfo");
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(name + ":")) {
            return std::stoll(line.substr(name.size() + 1)) * 1024;
        }
    }
    ADD_FAILURE() << name << " is not in /proc/meminfo";
    return 0;
}

TEST(LinuxDeviceProbes, MemoryAgreesWithMeminfo) {
    TestRuntime test;
    auto probes = probesFor("com.example.host");
    auto statistics = probes.memoryStatistics();
    ASSERT_TRUE(statistics.has_value());
    EXPECT_EQ(statistics->usedBytes + statistics->freeBytes, meminfoBytes("MemTotal"));
    EXPECT_NEAR(static_cast<double>(statistics->freeBytes),
                static_cast<double>(meminfoBytes("MemAvailable")), 256 * kMebibyte);
    EXPECT_GT(statistics->usedBytes, 0);
}

TEST(LinuxDeviceProbes, ResidentSizeAgreesWithVmRss) {
    TestRuntime test;
    auto probes = probesFor("com.example.host");
    std::optional<std::uint64_t> resident = probes.residentSize();
    std::int64_t vmRss = 0;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            vmRss = std::stoll(line.substr(6)) * 1024;
        }
    }
    ASSERT_TRUE(resident.has_value());
    ASSERT_GT(vmRss, 0);
    EXPECT_NEAR(static_cast<double>(*resident), static_cast<double>(vmRss), 16 * kMebibyte);
}

TEST(LinuxDeviceProbes, MachineSystemAndNameAgreeWithTheirTools) {
    TestRuntime test;
    auto probes = probesFor("com.example.host");
    EXPECT_EQ(probes.hardwareMachine(), outputOf("uname -m"));
    EXPECT_EQ(probes.operatingSystemVersionString(),
              outputOf("uname -s") + " " + outputOf("uname -r"));
    auto python = runPython("import socket; print(socket.gethostname())");
    ASSERT_EQ(python.exitCode, 0) << python.output;
    EXPECT_EQ(probes.deviceName() + "\n", python.output);
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
             {nullptr, nullptr, "de_AT@euro", "de", "AT"},
             {nullptr, nullptr, "pt", "pt", std::nullopt},
             {nullptr, "fr_CA.UTF-8", "en_US.UTF-8", "fr", "CA"},
             {"sv_FI", "fr_CA.UTF-8", "en_US.UTF-8", "sv", "FI"},
             {"", "", "et_EE.UTF-8", "et", "EE"},  // empty variables do not count
             {nullptr, nullptr, "C", std::nullopt, std::nullopt},
             {nullptr, nullptr, "C.UTF-8", std::nullopt, std::nullopt},
             {nullptr, nullptr, "POSIX", std::nullopt, std::nullopt},
             {"C", nullptr, "en_US.UTF-8", std::nullopt, std::nullopt},
             {nullptr, nullptr, nullptr, std::nullopt, std::nullopt},
         }) {
        std::string label = std::string(c.all ? c.all : "-") + "|" +
                            (c.messages ? c.messages : "-") + "|" + (c.lang ? c.lang : "-");
        for (auto [name, value] : {std::pair{"LC_ALL", c.all}, std::pair{"LC_MESSAGES", c.messages},
                                   std::pair{"LANG", c.lang}}) {
            value ? setenv(name, value, 1) : unsetenv(name);
        }
        EXPECT_EQ(probes.localeLanguageCode(), c.language) << label;
        EXPECT_EQ(probes.localeCountryCode(), c.country) << label;
    }
}

TEST(LinuxDeviceProbes, WifiNetworkNameIsNoneWithoutWirelessInterfaces) {
    TestRuntime test;
    if (fs::exists("/proc/net/wireless")) {
        GTEST_SKIP() << "this machine has wireless interfaces";
    }
    EXPECT_EQ(probesFor("com.example.host").wifiNetworkName(), std::nullopt);
}

TEST(LinuxDeviceProbes, BatteryIsTheFirstBatteryWhileMonitoring) {
    TestRuntime test;
    std::string supplies = test.root() + "/power_supply";
    writeFileCreatingFolders(supplies + "/AC/type", "Mains\n");
    writeFileCreatingFolders(supplies + "/AC/online", "1\n");
    writeFileCreatingFolders(supplies + "/BAT1/type", "Battery\n");
    writeFileCreatingFolders(supplies + "/BAT1/capacity", "87\n");
    writeFileCreatingFolders(supplies + "/BAT1/status", "Charging\n");
    writeFileCreatingFolders(supplies + "/BAT0/type", "Battery\n");
    writeFileCreatingFolders(supplies + "/BAT0/capacity", "42\n");
    writeFileCreatingFolders(supplies + "/BAT0/status", "Discharging\n");
    auto probes = probesFor("com.example.host", {.powerSupplyFolder = supplies});

    BatteryStatus off = probes.batteryStatus();
    EXPECT_EQ(off.level, -1.0);
    EXPECT_EQ(off.state, BatteryState::Unknown);

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

    fs::remove_all(supplies + "/BAT0");
    fs::remove_all(supplies + "/BAT1");
    BatteryStatus none = probes.batteryStatus();
    EXPECT_EQ(none.level, -1.0);
    EXPECT_EQ(none.state, BatteryState::Unknown);
}

TEST(LinuxDeviceProbes, BatteryOfThisMachineAgreesWithSysfs) {
    TestRuntime test;
    auto probes = probesFor("com.example.host");
    probes.setBatteryMonitoringEnabled(true);
    auto python = runPython(R"(import os
root = '/sys/class/power_supply'
names = sorted(os.listdir(root)) if os.path.isdir(root) else []
for name in names:
    try:
        kind = open(os.path.join(root, name, 'type')).read().strip()
    except OSError:
        continue
    if kind == 'Battery':
        print(int(open(os.path.join(root, name, 'capacity')).read()) / 100)
        break
else:
    print(-1.0)
)");
    ASSERT_EQ(python.exitCode, 0) << python.output;
    EXPECT_DOUBLE_EQ(probes.batteryStatus().level, std::stod(python.output));
}

// The vendor identifier as Python's uuid module makes it.
std::string pythonUuid5(const std::string& machineId, const std::string& name) {
    auto python = runPython(
        "import sys, uuid; print(str(uuid.uuid5(uuid.UUID(sys.argv[1]), "
        "sys.argv[2])).upper())",
        shellQuoted(machineId) + " " + shellQuoted(name));
    EXPECT_EQ(python.exitCode, 0) << python.output;
    return python.output.substr(0, python.output.find('\n'));
}

TEST(LinuxDeviceProbes, VendorIdentifierIsStablePerApplicationAndMachine) {
    TestRuntime test;
    const std::string machineId = "3d1219c7c4c5404aaa1f6d2a48adfda4";
    std::string machineIdFile = test.root() + "/machine-id";
    writeFileCreatingFolders(machineIdFile, machineId + "\n");
    auto mail = probesFor("com.example.mail", {.machineIdFile = machineIdFile});
    auto maps = probesFor("com.example.maps", {.machineIdFile = machineIdFile});

    EXPECT_EQ(mail.identifierForVendor(), pythonUuid5(machineId, "com.example.mail"));
    EXPECT_EQ(mail.identifierForVendor(), mail.identifierForVendor());
    EXPECT_NE(mail.identifierForVendor(), maps.identifierForVendor());

    writeFileCreatingFolders(machineIdFile, "00112233445566778899aabbccddeeff\n");
    EXPECT_EQ(mail.identifierForVendor(),
              pythonUuid5("00112233445566778899aabbccddeeff", "com.example.mail"));

    // Without a machine identifier the nil UUID stands in.
    fs::remove(machineIdFile);
    EXPECT_EQ(mail.identifierForVendor(),
              pythonUuid5("00000000000000000000000000000000", "com.example.mail"));
}

TEST(LinuxDeviceProbes, VendorIdentifierOfThisMachine) {
    TestRuntime test;
    std::ifstream in("/etc/machine-id");
    std::string machineId;
    if (!(in >> machineId)) {
        GTEST_SKIP() << "this machine has no /etc/machine-id";
    }
    EXPECT_EQ(probesFor("com.example.host").identifierForVendor(),
              pythonUuid5(machineId, "com.example.host"));
}

TEST(LinuxDeviceProbes, HostLocationIsTheLastKnownLocation) {
    TestRuntime test;
    auto probes = probesFor("com.example.host");
    EXPECT_EQ(probes.lastKnownLocation().has_value(), false);
    // Written from one thread while another reads: the reader sees one whole coordinate.
    std::thread writer([&] {
        for (int i = 0; i < 1000; ++i) {
            probes.setUserLocation({static_cast<double>(i % 90), static_cast<double>(i % 90)});
        }
    });
    for (int i = 0; i < 1000; ++i) {
        if (auto location = probes.lastKnownLocation()) {
            EXPECT_EQ(location->latitude, location->longitude);
        }
    }
    writer.join();
    probes.setUserLocation({59.437, 24.7536});
    EXPECT_EQ(probes.lastKnownLocation()->latitude, 59.437);
    EXPECT_EQ(probes.lastKnownLocation()->longitude, 24.7536);
}

// Whether this kernel lets this process arm a memory-pressure trigger.
bool pressureTriggersAvailable() {
    auto python = runPython(R"(import os
fd = os.open('/proc/pressure/memory', os.O_RDWR | os.O_NONBLOCK)
os.write(fd, b'some 150000 2000000\0')
)");
    return python.exitCode == 0;
}

TEST(MemoryPressureWatcher, ArmsTheKernelTriggerAndStopsPromptly) {
    TestRuntime test;
    if (!pressureTriggersAvailable()) {
        GTEST_SKIP() << "memory pressure triggers are not available here";
    }
    MemoryPressureWatcher watcher;
    EXPECT_TRUE(watcher.start([] {}));
    EXPECT_TRUE(watcher.isWatching());
    // A second start only replaces the callback.
    EXPECT_TRUE(watcher.start([] {}));
    watcher.stop();
    EXPECT_FALSE(watcher.isWatching());
    watcher.stop();
    // It can be armed again after stopping.
    EXPECT_TRUE(watcher.start([] {}));
}

TEST(MemoryPressureWatcher, WithoutThePressureFileNothingIsWatched) {
    TestRuntime test;
    MemoryPressureWatcher watcher(test.root() + "/no-such-pressure-file");
    EXPECT_FALSE(watcher.start([] { ADD_FAILURE() << "no pressure can be reported"; }));
    EXPECT_FALSE(watcher.isWatching());
    watcher.stop();
}

TEST(LinuxPlatformMemoryWatching, ARuntimeWatchingMemoryShutsDownCleanly) {
    TestRuntime test;
    bool available = pressureTriggersAvailable();
    auto runtime = std::make_unique<Runtime>(makeDefaultPlatform());
    Runtime* previous = Runtime::exchangeCurrent(runtime.get());
    TVKMemoryManager::beginWatchingMemory();
    auto& probes = static_cast<LinuxDeviceProbes&>(runtime->platform().device());
    EXPECT_EQ(probes.isWatchingMemoryPressure(), available);
    setUserLocation(48.8566, 2.3522);
    EXPECT_EQ(probes.lastKnownLocation()->latitude, 48.8566);
    runtime.reset();  // joins the pressure thread; a hang here fails by the test's time limit
    Runtime::exchangeCurrent(previous);
}

}  // namespace
}  // namespace tarvik
