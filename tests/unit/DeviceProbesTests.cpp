#include <tarvik/Host.h>

#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKSettingsManager.h"
#include "Helpers/UIDevice+Tarvik.h"
#include "Platform/PropertyList.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/ReadOnlyFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/stat.h>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using testing::FakeDevice;
using testing::TestRuntime;
using testsupport::ReadOnlyFolder;
using testsupport::runPython;
using testsupport::shellQuoted;

// Makes a file (or, for a path ending in ".app" or "/", a folder) below the root.
void plant(const std::string& root, const std::string& path) {
    std::string full = root + path;
    if (full.back() == '/' || full.ends_with(".app")) {
        fs::create_directories(full);
        return;
    }
    fs::create_directories(fs::path(full).parent_path());
    std::ofstream(full) << "#!/bin/sh\n";
}

// A fake device that is not a simulator, with its file system below a fresh folder.
class JailbreakTest : public ::testing::Test {
  protected:
    JailbreakTest() : device(test.platform().fakeDevice()), root(test.root() + "/device") {
        fs::create_directories(root);
        device.setSimulator(false);
        device.setFileSystemRoot(root);
    }
    TestRuntime test;
    FakeDevice& device;
    std::string root;
};

using JailbreakCheck = JailbreakTest;

TEST_F(JailbreakCheck, ACleanDeviceAnswersNoAtEveryStep) {
    EXPECT_FALSE(jailbreak::anyKnownPathExists(root));
    EXPECT_FALSE(jailbreak::anyKnownFileOpens(root));
    EXPECT_FALSE(jailbreak::canWriteOutsideSandbox(root));
    EXPECT_FALSE(tarvik_checkJailbroken());
}

TEST_F(JailbreakCheck, EachKnownPathAloneIsEnough) {
    for (const char* path :
         {"/Applications/Cydia.app", "/Library/MobileSubstrate/MobileSubstrate.dylib", "/bin/bash",
          "/usr/sbin/sshd", "/etc/apt", "/private/var/lib/apt/"}) {
        std::string alone = root + "/" + std::to_string(std::hash<std::string>{}(path));
        plant(alone, path);
        EXPECT_TRUE(jailbreak::anyKnownPathExists(alone)) << path;
        device.setFileSystemRoot(alone);
        EXPECT_TRUE(tarvik_checkJailbroken()) << path;
    }
    // Paths are taken below the root, never from the machine's own "/".
    EXPECT_FALSE(jailbreak::anyKnownPathExists(root));
}

TEST_F(JailbreakCheck, AReadableKnownFileIsEnough) {
    for (const char* path :
         {"/bin/bash", "/Applications/Cydia.app", "/Library/MobileSubstrate/MobileSubstrate.dylib",
          "/usr/sbin/sshd", "/etc/apt"}) {
        std::string alone = root + "/" + std::to_string(std::hash<std::string>{}(path));
        plant(alone, path);
        EXPECT_TRUE(jailbreak::anyKnownFileOpens(alone)) << path;
    }
}

TEST_F(JailbreakCheck, AFileThatExistsButCannotBeReadDoesNotOpen) {
    plant(root, "/usr/sbin/sshd");
    ::chmod((root + "/usr/sbin/sshd").c_str(), 0);
    ReadOnlyFolder guard(root + "/usr/sbin");  // takes away root's power to read anything
    if (!guard.refusesNewFiles()) {
        GTEST_SKIP() << "permissions are not enforced for this process";
    }
    EXPECT_TRUE(jailbreak::anyKnownPathExists(root));
    EXPECT_FALSE(jailbreak::anyKnownFileOpens(root));
}

TEST_F(JailbreakCheck, WritingOutsideTheSandboxIsEnoughAndLeavesNothingBehind) {
    fs::create_directories(root + "/private");
    EXPECT_TRUE(jailbreak::canWriteOutsideSandbox(root));
    EXPECT_FALSE(fs::exists(root + "/private/jailbreak.txt"));
    EXPECT_TRUE(fs::is_empty(root + "/private"));
    EXPECT_TRUE(tarvik_checkJailbroken());
}

TEST_F(JailbreakCheck, AReadOnlyPrivateFolderAnswersNo) {
    ReadOnlyFolder guard(root + "/private");
    if (!guard.refusesNewFiles()) {
        GTEST_SKIP() << "permissions are not enforced for this process";
    }
    EXPECT_FALSE(jailbreak::canWriteOutsideSandbox(root));
    EXPECT_FALSE(tarvik_checkJailbroken());
}

TEST_F(JailbreakCheck, ASimulatorAnswersNoWithoutLooking) {
    plant(root, "/bin/bash");
    fs::create_directories(root + "/private");
    device.setSimulator(true);
    EXPECT_FALSE(tarvik_checkJailbroken());
    EXPECT_FALSE(tarvik_isJailbroken());
}

class JailbreakCache : public JailbreakTest {
  protected:
    JailbreakCache() { fs::create_directories(TVKDirectoryLayout::settingsFolderPath()); }

    // The key as the settings file on disk holds it; none while it was never saved.
    std::optional<Value> savedAnswer() {
        std::optional<Value> settings = plist::readFile(TVKSettingsManager::tarvikSettingsPath());
        if (!settings || !settings->isDictionary()) {
            return std::nullopt;
        }
        auto it = settings->asDictionary()->find("isJailbrokenDevice");
        return it == settings->asDictionary()->end() ? std::nullopt : std::optional(it->second);
    }
};

TEST_F(JailbreakCache, KeepsTheFirstYesAfterTheDeviceChanges) {
    plant(root, "/bin/bash");
    EXPECT_FALSE(TVKSettingsManager::hasCheckedForJailbrokenDevice());
    EXPECT_TRUE(tarvik_isJailbroken());
    EXPECT_TRUE(TVKSettingsManager::hasCheckedForJailbrokenDevice());
    fs::remove(root + "/bin/bash");
    EXPECT_FALSE(tarvik_checkJailbroken());
    EXPECT_TRUE(tarvik_isJailbroken());
}

TEST_F(JailbreakCache, KeepsTheFirstNoAfterTheDeviceChanges) {
    EXPECT_FALSE(tarvik_isJailbroken());
    plant(root, "/etc/apt");
    EXPECT_TRUE(tarvik_checkJailbroken());
    EXPECT_FALSE(tarvik_isJailbroken());
    device.setSimulator(true);
    EXPECT_FALSE(tarvik_isJailbroken());
}

TEST_F(JailbreakCache, ReachesTheSettingsFileWithItsNextSave) {
    plant(root, "/usr/sbin/sshd");
    EXPECT_TRUE(tarvik_isJailbroken());
    EXPECT_FALSE(savedAnswer().has_value());
    TVKSettingsManager::sharedInstance()->saveSettings();
    ASSERT_TRUE(savedAnswer().has_value());
    EXPECT_EQ(*savedAnswer(), Value(true));
}

TEST(DeviceLocale, RegionAndLanguageFromTheLocale) {
    TestRuntime test;
    FakeDevice& device = test.platform().fakeDevice();
    struct Case {
        std::optional<std::string> language, country;
        std::string region, joined;
    };
    for (const Case& c : std::vector<Case>{{"en", "US", "US", "en_US"},
                                           {"pt", "BR", "BR", "pt_BR"},
                                           {"de", std::nullopt, "", "de_"},
                                           {std::nullopt, std::nullopt, "", ""},
                                           {std::nullopt, "US", "", ""}}) {
        device.setLocaleLanguageCode(c.language);
        device.setLocaleCountryCode(c.country);
        EXPECT_EQ(tarvik_deviceRegion(), c.region) << c.language.value_or("none");
        EXPECT_EQ(tarvik_deviceLanguage(), c.joined) << c.language.value_or("none");
    }
}

TEST(DeviceLocation, InvalidUntilTheHostSuppliesOne) {
    TestRuntime test;
    LocationCoordinate none = tarvik_userLocation();
    EXPECT_EQ(none.latitude, kLocationCoordinateInvalid.latitude);
    EXPECT_EQ(none.longitude, kLocationCoordinateInvalid.longitude);
    EXPECT_FALSE(isValidCoordinate(none));

    setUserLocation(59.4370, 24.7536);
    LocationCoordinate tallinn = tarvik_userLocation();
    EXPECT_EQ(tallinn.latitude, 59.4370);
    EXPECT_EQ(tallinn.longitude, 24.7536);
    EXPECT_TRUE(isValidCoordinate(tallinn));
}

TEST(DeviceMemory, ReadsThePlatformEachTimeAndCountsUnreadableAsNothing) {
    TestRuntime test;
    FakeDevice& device = test.platform().fakeDevice();
    EXPECT_EQ(tarvik_memoryFree(), 2LL << 30);
    EXPECT_EQ(tarvik_memoryUsed(), 1LL << 30);
    device.setMemoryStatistics(DeviceProbes::MemoryStatistics{123, 456});
    EXPECT_EQ(tarvik_memoryFree(), 123);
    EXPECT_EQ(tarvik_memoryUsed(), 456);
    device.setMemoryStatistics(std::nullopt);
    EXPECT_EQ(tarvik_memoryFree(), 0);
    EXPECT_EQ(tarvik_memoryUsed(), 0);
}

TEST(DeviceDisk, MatchesStatvfsOfTheDocumentsFolder) {
    TestRuntime test;
    std::string documents = test.runtime().folders().documentsDirectory();
    fs::create_directories(documents);
    std::uint64_t total = tarvik_diskTotal();
    std::uint64_t used = tarvik_diskUsed();
    auto python = runPython(R"(import os, sys
s = os.statvfs(sys.argv[1])
print(s.f_blocks * s.f_frsize, (s.f_blocks - s.f_bavail) * s.f_frsize)
)",
                            shellQuoted(documents));
    ASSERT_EQ(python.exitCode, 0) << python.output;
    std::uint64_t expectedTotal = 0;
    std::uint64_t expectedUsed = 0;
    std::istringstream(python.output) >> expectedTotal >> expectedUsed;
    EXPECT_GT(total, 0u);
    EXPECT_EQ(total, expectedTotal);
    // Other processes write meanwhile; 64 MiB of drift is plenty between two quick readings.
    EXPECT_NEAR(static_cast<double>(used), static_cast<double>(expectedUsed), 64.0 * (1 << 20));
}

TEST(DeviceDisk, AnUnreadableFileSystemCountsAsNothing) {
    TestRuntime test;
    // The documents folder was never made.
    ASSERT_FALSE(fs::exists(test.runtime().folders().documentsDirectory()));
    EXPECT_EQ(tarvik_diskTotal(), 0u);
    EXPECT_EQ(tarvik_diskUsed(), 0u);
}

}  // namespace
}  // namespace tarvik
