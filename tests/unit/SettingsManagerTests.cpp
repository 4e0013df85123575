#include <tarvik/Tarvik.h>

#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKSettingsManager.h"
#include "Platform/PropertyList.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/Files.h"
#include "support/PermissionsEnforced.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tarvik {
namespace {

using Settings = TVKSettingsManager;
using ::testing::Contains;
using testing::TestRuntime;
using testsupport::readFile;

namespace fs = std::filesystem;

const Date kTestStart{std::chrono::seconds(1767323045)};  // the Testing clock's start

// The settings file as the SDK's own reader sees it; an empty dictionary when unreadable.
Dictionary settingsOnDisk() {
    std::optional<Value> contents = plist::readFile(Settings::tarvikSettingsPath());
    return contents && contents->isDictionary() ? *contents->asDictionary() : Dictionary{};
}

// What a new installation writes at the Testing clock's start. The counter of the defaults has
// its own spelling, which the file format keeps.
Dictionary newInstallationDefaults() {
    return {{"eventFeatureEnabled", true},
            {"firstPresentedInstructionDate", kTestStart},
            {"lastPresentedInstructionDate", kTestStart},
            {"presentedIntructionCount", 0}};
}

// Tests start with the settings folder in place.
class SettingsTest : public ::testing::Test {
  protected:
    SettingsTest() { fs::create_directories(TVKDirectoryLayout::settingsFolderPath()); }
    TestRuntime test;
};

using SettingsNewInstallation = SettingsTest;

TEST_F(SettingsNewInstallation, WritesExactlyTheFourDefaults) {
    EXPECT_TRUE(Settings::eventSubmissionEnabled());
    EXPECT_FALSE(Settings::hasCheckedForJailbrokenDevice());
    EXPECT_EQ(settingsOnDisk(), newInstallationDefaults());
}

using SettingsSaving = SettingsTest;

TEST_F(SettingsSaving, OnlySomeOperationsReachTheDiskAtOnce) {
    Settings::setEventSubmissionEnabled(false);
    EXPECT_EQ(settingsOnDisk()["eventFeatureEnabled"], Value(false));
    Settings::setUserEmail("someone@example.com");
    EXPECT_EQ(settingsOnDisk()["userEmail"], Value("someone@example.com"));

    // The date and the device check are held in memory until the next save.
    test.advance(60);
    Date later = kTestStart + std::chrono::seconds(60);
    Settings::updateLastPresentedInstructionDate();
    Settings::setJailbrokenDevice(false);
    EXPECT_TRUE(Settings::hasCheckedForJailbrokenDevice());
    Dictionary disk = settingsOnDisk();
    EXPECT_EQ(disk["lastPresentedInstructionDate"], Value(kTestStart));
    EXPECT_FALSE(disk.contains("isJailbrokenDevice"));

    // Removing the e-mail removes its key and saves what was held.
    Settings::setUserEmail(std::nullopt);
    EXPECT_EQ(Settings::userEmail(), std::nullopt);
    disk = settingsOnDisk();
    EXPECT_FALSE(disk.contains("userEmail"));
    EXPECT_EQ(disk["lastPresentedInstructionDate"], Value(later));
    EXPECT_EQ(disk["isJailbrokenDevice"], Value(false));
}

TEST_F(SettingsSaving, EnablingWithTheStoredValueLeavesTheFileUntouched) {
    // Held in memory until a save, so any save changes the file.
    Settings::setJailbrokenDevice(true);
    std::string before = readFile(Settings::tarvikSettingsPath());

    Settings::setEventSubmissionEnabled(true);
    EXPECT_EQ(readFile(Settings::tarvikSettingsPath()), before);

    Settings::setEventSubmissionEnabled(false);
    EXPECT_EQ(settingsOnDisk()["isJailbrokenDevice"], Value(true));
    EXPECT_FALSE(Settings::eventSubmissionEnabled());
}

TEST_F(SettingsSaving, InstructionCountIsStoredAtMostThree) {
    const std::pair<std::int64_t, std::int64_t> cases[] = {
        {7, 3}, {2, 2}, {3, 3}, {4, 3}, {-4, -4}};
    for (auto [given, stored] : cases) {
        Settings::setPresentedInstructionCount(given);
        EXPECT_EQ(Settings::presentedInstructionCount(), stored) << given;
        EXPECT_EQ(settingsOnDisk()["presentedInstructionCount"], Value(stored)) << given;
    }
}

// A file that is empty or not a dictionary is not a settings file: until the start the store
// keeps nothing and leaves it as it is; the start sets it aside under a name no earlier one has
// and writes the defaults anew.
TEST(SettingsFile, ADamagedFileIsSetAsideAtStartAndTheDefaultsWrittenAnew) {
    Data arrayRoot = *plist::toBinary(Array{"eventFeatureEnabled", true});
    const std::string cases[] = {"", "\x89PNG not a property list",
                                 std::string(arrayRoot.begin(), arrayRoot.end()),
                                 *plist::toXml("eventFeatureEnabled")};
    for (const std::string& bytes : cases) {
        SCOPED_TRACE(::testing::PrintToString(bytes));
        TestRuntime test;
        std::string path = Settings::tarvikSettingsPath();
        fs::create_directories(TVKDirectoryLayout::settingsFolderPath());
        testsupport::writeFile(path, bytes);
        testsupport::writeFile(path + ".unreadable-1", "set aside by an earlier launch");

        EXPECT_EQ(Settings::sharedInstance()->tarvikSettings(), std::nullopt);
        Settings::setUserEmail("someone@example.com");
        EXPECT_EQ(readFile(path), bytes);

        Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, true);
        EXPECT_TRUE(Settings::eventSubmissionEnabled());
        EXPECT_EQ(settingsOnDisk(), newInstallationDefaults());
        EXPECT_EQ(readFile(path + ".unreadable-1"), "set aside by an earlier launch");
        EXPECT_EQ(readFile(path + ".unreadable-2"), bytes);
        EXPECT_THAT(test.consoleLines(),
                    Contains("Tarvik -- the settings file could not be read; it was kept as "
                             "config.plist.unreadable-2 and written anew with its defaults"));
    }
}

// The settings folder is made on first use, so settings given before the start of a first
// launch are kept, and events are on.
TEST(SettingsFile, SettingsGivenBeforeTheFirstStartAreKept) {
    TestRuntime test;
    Tarvik::sharedInstance().setUserEmail("someone@example.com");
    Tarvik::startWithAPIKey("key");
    EXPECT_TRUE(Settings::eventSubmissionEnabled());
    EXPECT_EQ(Settings::userEmail(), "someone@example.com");
}

// A file the process may not read may hold good settings: it is neither set aside nor
// overwritten, and the start says what that means.
TEST(SettingsFile, AFileThatCannotBeOpenedIsLeftAsItIs) {
    TestRuntime test;
    std::string path = Settings::tarvikSettingsPath();
    fs::create_directories(TVKDirectoryLayout::settingsFolderPath());
    testsupport::writeFile(path, *plist::toXml(Dictionary{{"eventFeatureEnabled", true}}));
    fs::permissions(path, fs::perms::none);
    testsupport::PermissionsEnforced enforced;
    if (std::ifstream(path).is_open()) {
        GTEST_SKIP() << "permissions are not enforced for this process";
    }
    Tarvik::startWithAPIKey("key", TarvikProcessTypeManual, true);
    EXPECT_FALSE(Settings::eventSubmissionEnabled());
    EXPECT_EQ(std::distance(fs::directory_iterator(TVKDirectoryLayout::settingsFolderPath()),
                            fs::directory_iterator()),
              1);
    EXPECT_THAT(test.consoleLines(),
                Contains("Tarvik -- cannot read or write the settings file " + path +
                         ": events stay off and settings are not kept for this launch"));
}

}  // namespace
}  // namespace tarvik
