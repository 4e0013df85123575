#include "Helpers/TVKDirectoryLayout.h"
#include "Helpers/TVKSettingsManager.h"
#include "Platform/PropertyList.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/Files.h"
#include "support/ReadOnlyFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <random>
#include <thread>
#include <vector>

#include <sys/stat.h>

namespace tarvik {
namespace {

using Settings = TVKSettingsManager;
using testing::TestRuntime;
using testsupport::readFile;
using testsupport::ReadOnlyFolder;
using testsupport::runPython;
using testsupport::shellQuoted;
using testsupport::writeFile;

namespace fs = std::filesystem;

const Date kTestStart{std::chrono::seconds(1767323045)};  // the Testing clock's start

void makeSettingsFolder() {
    fs::create_directories(TVKDirectoryLayout::settingsFolderPath());
}

// The settings file as the SDK's own reader sees it; an empty dictionary when unreadable.
Dictionary settingsOnDisk() {
    std::optional<Value> contents = plist::readFile(Settings::tarvikSettingsPath());
    return contents && contents->isDictionary() ? *contents->asDictionary() : Dictionary{};
}

// What tells a rewritten file from an untouched one: an atomic save replaces the file.
struct FileStamp {
    ino_t inode = 0;
    std::int64_t modifiedNanoseconds = 0;
    std::string bytes;
    bool operator==(const FileStamp&) const = default;
};

FileStamp stampOf(const std::string& path) {
    struct stat info {};
    stat(path.c_str(), &info);
    return {info.st_ino, info.st_mtim.tv_sec * 1000000000LL + info.st_mtim.tv_nsec, readFile(path)};
}

TEST(SettingsNewInstallation, WritesExactlyTheFourDefaults) {
    TestRuntime test;
    makeSettingsFolder();
    EXPECT_TRUE(Settings::eventSubmissionEnabled());

    auto python = runPython(R"(import plistlib, sys
with open(sys.argv[1], 'rb') as f:
    settings = plistlib.load(f)
for key in sorted(settings):
    print(key, type(settings[key]).__name__, settings[key])
)",
                            shellQuoted(Settings::tarvikSettingsPath()));
    ASSERT_EQ(python.exitCode, 0) << python.output;
    EXPECT_EQ(python.output,
              "eventFeatureEnabled bool True\n"
              "firstPresentedInstructionDate datetime 2026-01-02 03:04:05\n"
              "lastPresentedInstructionDate datetime 2026-01-02 03:04:05\n"
              "presentedIntructionCount int 0\n");
    EXPECT_EQ(Settings::firstPresentedInstructionDate(), kTestStart);
    EXPECT_EQ(Settings::lastPresentedInstructionDate(), kTestStart);
    EXPECT_FALSE(Settings::userEmail());
    EXPECT_FALSE(Settings::hasCheckedForJailbrokenDevice());
}

TEST(SettingsNewInstallation, CounterReadsOnlyTheCorrectlySpelledKey) {
    TestRuntime test;
    makeSettingsFolder();
    // A file of an earlier installation whose only counter is the default's spelling.
    Dictionary earlier = {{"eventFeatureEnabled", true}, {"presentedIntructionCount", 2}};
    ASSERT_TRUE(plist::writeFileAtomically(earlier, Settings::tarvikSettingsPath()));
    EXPECT_EQ(Settings::presentedInstructionCount(), 0);

    Settings::setPresentedInstructionCount(1);
    EXPECT_EQ(Settings::presentedInstructionCount(), 1);
    Dictionary disk = settingsOnDisk();
    EXPECT_EQ(disk["presentedInstructionCount"], Value(1));
    EXPECT_EQ(disk["presentedIntructionCount"], Value(2));
}

TEST(SettingsSaving, OnlySomeOperationsReachTheDiskAtOnce) {
    TestRuntime test;
    makeSettingsFolder();

    Settings::setEventSubmissionEnabled(false);
    EXPECT_EQ(settingsOnDisk()["eventFeatureEnabled"], Value(false));
    Settings::setUserEmail("someone@example.com");
    EXPECT_EQ(settingsOnDisk()["userEmail"], Value("someone@example.com"));
    Settings::setPresentedInstructionCount(2);
    EXPECT_EQ(settingsOnDisk()["presentedInstructionCount"], Value(2));

    test.advance(60);
    Date later = kTestStart + std::chrono::seconds(60);
    Settings::updateLastPresentedInstructionDate();
    Settings::setJailbrokenDevice(true);
    EXPECT_EQ(Settings::lastPresentedInstructionDate(), later);
    EXPECT_TRUE(Settings::isJailbrokenDevice());
    Dictionary disk = settingsOnDisk();
    EXPECT_EQ(disk["lastPresentedInstructionDate"], Value(kTestStart));
    EXPECT_FALSE(disk.contains("isJailbrokenDevice"));

    // The next save carries them along, even one that stores an unchanged e-mail.
    Settings::setUserEmail("someone@example.com");
    disk = settingsOnDisk();
    EXPECT_EQ(disk["lastPresentedInstructionDate"], Value(later));
    EXPECT_EQ(disk["isJailbrokenDevice"], Value(true));
    EXPECT_EQ(disk["firstPresentedInstructionDate"], Value(kTestStart));
}

TEST(SettingsSaving, EnablingWithTheStoredValueLeavesTheFileUntouched) {
    TestRuntime test;
    makeSettingsFolder();
    Settings::setJailbrokenDevice(true);  // held in memory until a save
    FileStamp before = stampOf(Settings::tarvikSettingsPath());

    Settings::setEventSubmissionEnabled(true);
    EXPECT_EQ(stampOf(Settings::tarvikSettingsPath()), before);

    Settings::setEventSubmissionEnabled(false);
    EXPECT_NE(stampOf(Settings::tarvikSettingsPath()), before);
    EXPECT_EQ(settingsOnDisk()["isJailbrokenDevice"], Value(true));
    EXPECT_FALSE(Settings::eventSubmissionEnabled());
}

TEST(SettingsUserEmail, NoneRemovesTheKeyAndStillSaves) {
    TestRuntime test;
    makeSettingsFolder();
    Settings::setUserEmail("someone@example.com");
    ASSERT_TRUE(settingsOnDisk().contains("userEmail"));

    Settings::setJailbrokenDevice(false);
    Settings::setUserEmail(std::nullopt);
    EXPECT_EQ(Settings::userEmail(), std::nullopt);
    Dictionary disk = settingsOnDisk();
    EXPECT_FALSE(disk.contains("userEmail"));
    EXPECT_TRUE(disk.contains("isJailbrokenDevice"));

    // Removing an e-mail that is not there saves too.
    test.advance(5);
    Settings::updateLastPresentedInstructionDate();
    Settings::setUserEmail(std::nullopt);
    EXPECT_EQ(settingsOnDisk()["lastPresentedInstructionDate"],
              Value(kTestStart + std::chrono::seconds(5)));
}

TEST(SettingsInstructionCount, StoresAtMostThree) {
    TestRuntime test;
    makeSettingsFolder();
    for (auto [given, stored] : std::vector<std::pair<std::int64_t, std::int64_t>>{
             {7, 3}, {2, 2}, {3, 3}, {4, 3}, {-4, -4}}) {
        Settings::setPresentedInstructionCount(given);
        EXPECT_EQ(Settings::presentedInstructionCount(), stored) << given;
        EXPECT_EQ(settingsOnDisk()["presentedInstructionCount"], Value(stored)) << given;
    }
}

TEST(SettingsJailbrokenDevice, CheckedOnceAnyResultIsStored) {
    TestRuntime test;
    makeSettingsFolder();
    EXPECT_FALSE(Settings::hasCheckedForJailbrokenDevice());
    Settings::setJailbrokenDevice(false);
    EXPECT_TRUE(Settings::hasCheckedForJailbrokenDevice());
    EXPECT_FALSE(Settings::isJailbrokenDevice());
    Settings::setJailbrokenDevice(true);
    EXPECT_TRUE(Settings::isJailbrokenDevice());
}

TEST(SettingsFile, ReadsAnXmlFileWrittenByPython) {
    TestRuntime test;
    makeSettingsFolder();
    auto python = runPython(R"(import datetime, plistlib, sys
settings = {'eventFeatureEnabled': False, 'presentedInstructionCount': 2,
            'userEmail': 'someone@example.com', 'isJailbrokenDevice': True,
            'firstPresentedInstructionDate': datetime.datetime(2024, 2, 29, 12, 0, 0),
            'lastPresentedInstructionDate': datetime.datetime(2025, 6, 1, 8, 30, 15)}
with open(sys.argv[1], 'wb') as f:
    plistlib.dump(settings, f, fmt=plistlib.FMT_XML)
)",
                            shellQuoted(Settings::tarvikSettingsPath()));
    ASSERT_EQ(python.exitCode, 0) << python.output;

    EXPECT_FALSE(Settings::eventSubmissionEnabled());
    EXPECT_EQ(Settings::presentedInstructionCount(), 2);
    EXPECT_EQ(Settings::userEmail(), "someone@example.com");
    EXPECT_TRUE(Settings::isJailbrokenDevice());
    EXPECT_EQ(Settings::firstPresentedInstructionDate(),
              Date(std::chrono::seconds(1709208000)));  // 2024-02-29T12:00:00Z
    EXPECT_EQ(Settings::lastPresentedInstructionDate(),
              Date(std::chrono::seconds(1748766615)));  // 2025-06-01T08:30:15Z
}

TEST(SettingsFile, UnreadableFileLeavesTheStoreEmptyAndTheFileAlone) {
    std::mt19937 random(7);
    std::string randomBytes(512, '\0');
    for (char& byte : randomBytes) {
        byte = static_cast<char>(random());
    }
    Data arrayRoot = *plist::toBinary(Array{"eventFeatureEnabled", true});
    std::vector<std::pair<std::string, std::string>> cases = {
        {"random bytes", randomBytes},
        {"empty", ""},
        {"binary array root", std::string(arrayRoot.begin(), arrayRoot.end())},
        {"XML string root", *plist::toXml("eventFeatureEnabled")},
    };
    for (const auto& [name, bytes] : cases) {
        TestRuntime test;
        makeSettingsFolder();
        writeFile(Settings::tarvikSettingsPath(), bytes);

        EXPECT_EQ(Settings::sharedInstance()->tarvikSettings(), std::nullopt) << name;
        EXPECT_FALSE(Settings::eventSubmissionEnabled()) << name;
        Settings::setEventSubmissionEnabled(true);
        Settings::setUserEmail("someone@example.com");
        Settings::setPresentedInstructionCount(2);
        Settings::updateLastPresentedInstructionDate();
        Settings::setJailbrokenDevice(true);
        Settings::sharedInstance()->saveSettings();
        EXPECT_FALSE(Settings::eventSubmissionEnabled()) << name;
        EXPECT_EQ(Settings::userEmail(), std::nullopt) << name;
        EXPECT_EQ(Settings::presentedInstructionCount(), 0) << name;
        EXPECT_EQ(Settings::lastPresentedInstructionDate(), std::nullopt) << name;
        EXPECT_FALSE(Settings::hasCheckedForJailbrokenDevice()) << name;
        EXPECT_EQ(readFile(Settings::tarvikSettingsPath()), bytes) << name;
    }
}

TEST(SettingsFile, WithoutItsFolderNothingIsKept) {
    TestRuntime test;
    EXPECT_EQ(Settings::sharedInstance()->tarvikSettings(), std::nullopt);
    EXPECT_FALSE(Settings::eventSubmissionEnabled());
    EXPECT_EQ(Settings::firstPresentedInstructionDate(), std::nullopt);

    // A folder made later does not bring the store back for this process.
    makeSettingsFolder();
    Settings::setUserEmail("someone@example.com");
    Settings::setPresentedInstructionCount(1);
    EXPECT_EQ(Settings::userEmail(), std::nullopt);
    EXPECT_EQ(Settings::presentedInstructionCount(), 0);
    EXPECT_FALSE(fs::exists(Settings::tarvikSettingsPath()));
}

TEST(SettingsFile, ReadOnlyFolderKeepsChangesInMemoryOnly) {
    TestRuntime test;
    makeSettingsFolder();
    ASSERT_TRUE(plist::writeFileAtomically(
        Dictionary{{"eventFeatureEnabled", true}, {"userEmail", "before@example.com"}},
        Settings::tarvikSettingsPath()));
    std::string bytes = readFile(Settings::tarvikSettingsPath());
    ReadOnlyFolder folder(TVKDirectoryLayout::settingsFolderPath());
    if (!folder.refusesNewFiles()) {
        GTEST_SKIP() << "cannot make a folder read-only here";
    }

    EXPECT_EQ(Settings::userEmail(), "before@example.com");
    Settings::setUserEmail("after@example.com");
    Settings::setEventSubmissionEnabled(false);
    EXPECT_EQ(Settings::userEmail(), "after@example.com");
    EXPECT_FALSE(Settings::eventSubmissionEnabled());
    EXPECT_EQ(readFile(Settings::tarvikSettingsPath()), bytes);
    // A failed save leaves no temporary file behind.
    auto entries = fs::directory_iterator(folder.path());
    EXPECT_EQ(std::distance(fs::begin(entries), fs::end(entries)), 1);
}

TEST(SettingsFile, ReadOnlyFolderWithoutAFileKeepsNothing) {
    TestRuntime test;
    makeSettingsFolder();
    ReadOnlyFolder folder(TVKDirectoryLayout::settingsFolderPath());
    if (!folder.refusesNewFiles()) {
        GTEST_SKIP() << "cannot make a folder read-only here";
    }

    EXPECT_EQ(Settings::sharedInstance()->tarvikSettings(), std::nullopt);
    EXPECT_FALSE(Settings::eventSubmissionEnabled());
    Settings::setPresentedInstructionCount(2);
    EXPECT_EQ(Settings::presentedInstructionCount(), 0);
    EXPECT_FALSE(fs::exists(Settings::tarvikSettingsPath()));
}

TEST(SettingsConcurrency, SettersAndGettersFromManyThreads) {
    TestRuntime test;
    makeSettingsFolder();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            std::string email = "user" + std::to_string(t) + "@example.com";
            for (int i = 0; i < 50; ++i) {
                Settings::setUserEmail(email);
                Settings::setPresentedInstructionCount(i % 6);
                Settings::setEventSubmissionEnabled(i % 2 == 0);
                Settings::updateLastPresentedInstructionDate();
                Settings::setJailbrokenDevice(t % 2 == 0);
                EXPECT_LE(Settings::presentedInstructionCount(), 3);
                EXPECT_TRUE(Settings::userEmail());
                EXPECT_TRUE(Settings::lastPresentedInstructionDate());
                EXPECT_TRUE(Settings::hasCheckedForJailbrokenDevice());
                (void)Settings::eventSubmissionEnabled();
                (void)Settings::isJailbrokenDevice();
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        test.advance(1);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    // Every save wrote a whole dictionary: the last one matches memory once more is saved.
    Settings::sharedInstance()->saveSettings();
    EXPECT_EQ(Value(settingsOnDisk()), Value(*Settings::sharedInstance()->tarvikSettings()));
}

}  // namespace
}  // namespace tarvik
