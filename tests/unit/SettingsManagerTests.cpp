#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKSettingsManager.h"
#include "Platform/PropertyList.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace tarvik {
namespace {

using Settings = TVKSettingsManager;
using testing::TestRuntime;
using testsupport::readFile;

namespace fs = std::filesystem;

const Date kTestStart{std::chrono::seconds(1767323045)};  // the Testing clock's start

// The settings file as the SDK's own reader sees it; an empty dictionary when unreadable.
Dictionary settingsOnDisk() {
    std::optional<Value> contents = plist::readFile(Settings::tarvikSettingsPath());
    return contents && contents->isDictionary() ? *contents->asDictionary() : Dictionary{};
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
    // The counter of the defaults has its own spelling, which the file format keeps.
    Dictionary defaults = {{"eventFeatureEnabled", true},
                           {"firstPresentedInstructionDate", kTestStart},
                           {"lastPresentedInstructionDate", kTestStart},
                           {"presentedIntructionCount", 0}};
    EXPECT_EQ(settingsOnDisk(), defaults);
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

// Without a folder no file can be made; a file that is not a dictionary is not a settings file.
// Either way the store keeps nothing for the rest of the process and leaves the disk alone.
TEST(SettingsFile, WithoutAFolderOrADictionaryNothingIsKept) {
    Data arrayRoot = *plist::toBinary(Array{"eventFeatureEnabled", true});
    const std::optional<std::string> cases[] = {std::nullopt, "", "\x89PNG not a property list",
                                                std::string(arrayRoot.begin(), arrayRoot.end()),
                                                *plist::toXml("eventFeatureEnabled")};
    for (const std::optional<std::string>& bytes : cases) {
        SCOPED_TRACE(::testing::PrintToString(bytes));
        TestRuntime test;
        if (bytes) {
            fs::create_directories(TVKDirectoryLayout::settingsFolderPath());
            testsupport::writeFile(Settings::tarvikSettingsPath(), *bytes);
        }

        EXPECT_EQ(Settings::sharedInstance()->tarvikSettings(), std::nullopt);
        // Not even a folder made later brings the store back.
        fs::create_directories(TVKDirectoryLayout::settingsFolderPath());
        Settings::setEventSubmissionEnabled(true);
        Settings::setUserEmail("someone@example.com");
        Settings::setJailbrokenDevice(true);
        Settings::sharedInstance()->saveSettings();
        EXPECT_FALSE(Settings::eventSubmissionEnabled());
        EXPECT_EQ(Settings::userEmail(), std::nullopt);
        EXPECT_FALSE(Settings::hasCheckedForJailbrokenDevice());
        EXPECT_EQ(fs::exists(Settings::tarvikSettingsPath()), bytes.has_value());
        EXPECT_EQ(readFile(Settings::tarvikSettingsPath()), bytes.value_or(""));
    }
}

}  // namespace
}  // namespace tarvik
