#include <tarvik/Host.h>

#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKSettingsManager.h"
#include "Helpers/UIDevice+Tarvik.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/ReadOnlyFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using testing::TestRuntime;

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
class JailbreakCheck : public ::testing::Test {
  protected:
    JailbreakCheck() : device(test.platform().fakeDevice()), root(test.root() + "/device") {
        fs::create_directories(root);
        device.setSimulator(false);
        device.setFileSystemRoot(root);
    }
    TestRuntime test;
    testing::FakeDevice& device;
    std::string root;
};

TEST_F(JailbreakCheck, EachKnownPathAloneIsEnoughOutsideASimulator) {
    // Paths are taken below the root, never from the machine's own "/" (which has /bin/bash).
    EXPECT_FALSE(tarvik_checkJailbroken());
    // The apt folder only counts as present: it is not among the files tried for reading.
    for (auto [path, opens] :
         {std::pair{"/Applications/Cydia.app", true},
          std::pair{"/Library/MobileSubstrate/MobileSubstrate.dylib", true},
          std::pair{"/bin/bash", true}, std::pair{"/usr/sbin/sshd", true},
          std::pair{"/etc/apt", true}, std::pair{"/private/var/lib/apt/", false}}) {
        std::string alone = root + "/" + std::to_string(std::hash<std::string>{}(path));
        plant(alone, path);
        EXPECT_TRUE(jailbreak::anyKnownPathExists(alone)) << path;
        EXPECT_EQ(jailbreak::anyKnownFileOpens(alone), opens) << path;
        device.setFileSystemRoot(alone);
        EXPECT_TRUE(tarvik_checkJailbroken()) << path;
    }
    // A simulator (as every Linux machine counts) answers no without looking.
    device.setSimulator(true);
    EXPECT_FALSE(tarvik_checkJailbroken());
}

TEST_F(JailbreakCheck, WritingOutsideTheSandboxIsEnoughAndLeavesNothingBehind) {
    fs::create_directories(root + "/private");
    EXPECT_TRUE(tarvik_checkJailbroken());
    EXPECT_TRUE(fs::is_empty(root + "/private"));

    testsupport::ReadOnlyFolder guard(root + "/private");
    if (!guard.refusesNewFiles()) {
        GTEST_SKIP() << "permissions are not enforced for this process";
    }
    EXPECT_FALSE(tarvik_checkJailbroken());
}

TEST_F(JailbreakCheck, TheFirstAnswerIsKeptAfterTheDeviceChanges) {
    fs::create_directories(TVKDirectoryLayout::settingsFolderPath());  // where answers are kept
    EXPECT_FALSE(TVKSettingsManager::hasCheckedForJailbrokenDevice());
    EXPECT_FALSE(tarvik_isJailbroken());
    EXPECT_TRUE(TVKSettingsManager::hasCheckedForJailbrokenDevice());
    plant(root, "/etc/apt");
    EXPECT_TRUE(tarvik_checkJailbroken());
    EXPECT_FALSE(tarvik_isJailbroken());
}

TEST(DeviceDisk, MatchesStatvfsOfTheDocumentsFolderOnceItExists) {
    TestRuntime test;
    std::string documents = test.runtime().folders().documentsDirectory();
    ASSERT_FALSE(fs::exists(documents));
    EXPECT_EQ(tarvik_diskTotal(), 0u);
    EXPECT_EQ(tarvik_diskUsed(), 0u);

    fs::create_directories(documents);
    // Other processes write meanwhile; 64 MiB of drift is plenty between two quick readings.
    auto python = testsupport::runPython(R"(import os, sys
s = os.statvfs(sys.argv[1])
total, used = int(sys.argv[2]), int(sys.argv[3])
assert total > 0 and total == s.f_blocks * s.f_frsize, (total, s)
assert abs(used - (s.f_blocks - s.f_bavail) * s.f_frsize) < 64 << 20, (used, s)
)",
                                         testsupport::shellQuoted(documents) + " " +
                                             std::to_string(tarvik_diskTotal()) + " " +
                                             std::to_string(tarvik_diskUsed()));
    EXPECT_EQ(python.exitCode, 0) << python.output;
}

}  // namespace
}  // namespace tarvik
