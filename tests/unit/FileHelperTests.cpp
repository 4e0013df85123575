#include "Helpers/TVKFileHelper.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/Files.h"
#include "support/PermissionsEnforced.h"

#include <tarvik/Tarvik.h>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <sstream>

#include <dirent.h>
#include <sys/stat.h>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using testing::TestRuntime;
using testsupport::folderRefusesNewFiles;
using testsupport::PermissionsEnforced;
using testsupport::readFile;
using testsupport::runCommand;
using testsupport::runPython;
using testsupport::shellQuoted;
using testsupport::writeFile;

// Bytes whose pattern does not repeat every 1024 bytes, so a chunk written twice, skipped or
// out of order shows up.
std::string patternedBytes(size_t length) {
    std::string bytes(length, '\0');
    for (size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xff);
    }
    return bytes;
}

// Compares binary contents and reports where they part, instead of printing them whole.
::testing::AssertionResult sameBytes(const std::string& actual, const std::string& expected) {
    if (actual == expected) {
        return ::testing::AssertionSuccess();
    }
    auto parted = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    return ::testing::AssertionFailure()
           << "sizes " << actual.size() << " and " << expected.size() << ", first difference at "
           << (parted.first - actual.begin());
}

void turnDebugOn() {
    Tarvik::sharedInstance().setDebug(true);
}

bool folderCanBeListed(const std::string& folder) {
    DIR* listing = ::opendir(folder.c_str());
    if (listing) {
        ::closedir(listing);
    }
    return listing != nullptr;
}

// ----------------------------------------------------------------------------------------------

TEST(FileHelperCreate, ExistingItemsAreSilentNoOps) {
    TestRuntime test;
    turnDebugOn();
    std::string folder = test.root() + "/folder";
    std::string file = test.root() + "/file.txt";
    TVKFileHelper::createDirectoryAtPath(folder);
    writeFile(folder + "/inside", "kept");
    writeFile(file, "old");

    TVKFileHelper::createDirectoryAtPath(folder);
    TVKFileHelper::createFileAtPath(folder, Data{'x'});
    TVKFileHelper::createFileAtPath(file, Data{'n', 'e', 'w'});

    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_EQ(readFile(folder + "/inside"), "kept");
    EXPECT_EQ(readFile(file), "old");
    EXPECT_TRUE(test.consoleLines().empty());
}

TEST(FileHelperCreate, FoldersGetIntermediateFoldersFilesDoNot) {
    TestRuntime test;
    turnDebugOn();
    std::string deepFolder = test.root() + "/a/b/c";
    std::string orphanFile = test.root() + "/missing/file.txt";

    TVKFileHelper::createDirectoryAtPath(deepFolder);
    TVKFileHelper::createFileAtPath(orphanFile);

    EXPECT_TRUE(fs::is_directory(deepFolder));
    EXPECT_FALSE(fs::exists(test.root() + "/missing"));
    EXPECT_EQ(test.consoleLines(),
              std::vector<std::string>{"Tarvik Error -- FAILED to create FILE: " + orphanFile +
                                       " \n (null)"});
}

TEST(FileHelperCreate, FileGetsTheGivenContentsOrNone) {
    TestRuntime test;
    std::string withContents = test.root() + "/with.bin";
    std::string empty = test.root() + "/empty.bin";
    Data bytes{0, 1, 2, 0xff, 0};
    TVKFileHelper::createFileAtPath(withContents, bytes);
    TVKFileHelper::createFileAtPath(empty);
    EXPECT_EQ(readFile(withContents), std::string("\0\1\2\xff\0", 5));
    EXPECT_TRUE(fs::is_regular_file(empty));
    EXPECT_EQ(fs::file_size(empty), 0u);
}

TEST(FileHelperCreate, RemoveTakesFoldersWithContentsAndIgnoresMissingPaths) {
    TestRuntime test;
    turnDebugOn();
    std::string folder = test.root() + "/tree";
    TVKFileHelper::createDirectoryAtPath(folder + "/sub");
    writeFile(folder + "/sub/file", "x");
    TVKFileHelper::removeFileAtPath(folder);
    TVKFileHelper::removeFileAtPath(test.root() + "/never-there");
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_TRUE(test.consoleLines().empty());
}

TEST(FileHelperCreate, ClearTruncatesAnExistingFileOnly) {
    TestRuntime test;
    std::string file = test.root() + "/log.txt";
    writeFile(file, "some text");
    TVKFileHelper::clearFileAtPath(file);
    TVKFileHelper::clearFileAtPath(test.root() + "/absent.txt");
    EXPECT_TRUE(fs::exists(file));
    EXPECT_EQ(fs::file_size(file), 0u);
    EXPECT_FALSE(fs::exists(test.root() + "/absent.txt"));
}

// ----------------------------------------------------------------------------------------------

TEST(FileHelperCopy, IntoTheFolderThatHoldsItFails) {
    TestRuntime test;
    std::string file = test.root() + "/report.txt";
    writeFile(file, "original");
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(file, test.root()));
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(file, test.root() + "/"));
    EXPECT_EQ(readFile(file), "original");
}

TEST(FileHelperCopy, DestinationContainingTheSourcePathIsRefused) {
    TestRuntime test;
    std::string folder = test.root() + "/folder";
    TVKFileHelper::createDirectoryAtPath(folder + "/sub");
    writeFile(folder + "/file", "x");
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(folder, folder + "/sub"));
    EXPECT_FALSE(fs::exists(folder + "/sub/folder"));

    // The test is on the path text: a sibling whose name starts like the source counts too.
    std::string log = test.root() + "/log";
    writeFile(log, "x");
    TVKFileHelper::createDirectoryAtPath(test.root() + "/log-archive");
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(log, test.root() + "/log-archive"));
    EXPECT_FALSE(fs::exists(test.root() + "/log-archive/log"));
}

TEST(FileHelperCopy, ReplacesWhateverIsAtTheDestination) {
    TestRuntime test;
    std::string source = test.root() + "/data.txt";
    std::string target = test.root() + "/out";
    writeFile(source, "new");
    TVKFileHelper::createDirectoryAtPath(target);
    writeFile(target + "/data.txt", "older and longer");
    ASSERT_TRUE(TVKFileHelper::copyFileFromPath(source, target));
    EXPECT_EQ(readFile(target + "/data.txt"), "new");

    // A folder of the same name is replaced by the file too.
    fs::remove(target + "/data.txt");
    TVKFileHelper::createDirectoryAtPath(target + "/data.txt/inner");
    ASSERT_TRUE(TVKFileHelper::copyFileFromPath(source, target));
    EXPECT_EQ(readFile(target + "/data.txt"), "new");
    EXPECT_EQ(readFile(source), "new");
}

TEST(FileHelperCopy, CopiesAFolderWithEverythingInIt) {
    TestRuntime test;
    std::string source = test.root() + "/submission";
    TVKFileHelper::createDirectoryAtPath(source + "/attachments");
    writeFile(source + "/info.plist", "plist");
    writeFile(source + "/attachments/.hidden", "hidden");
    TVKFileHelper::createDirectoryAtPath(test.root() + "/Queued");
    ASSERT_TRUE(TVKFileHelper::copyFileFromPath(source, test.root() + "/Queued"));
    EXPECT_EQ(readFile(test.root() + "/Queued/submission/info.plist"), "plist");
    EXPECT_EQ(readFile(test.root() + "/Queued/submission/attachments/.hidden"), "hidden");
}

TEST(FileHelperCopy, PathsWithSpacesAndNonAsciiLettersWork) {
    TestRuntime test;
    std::string folder = test.root() + "/Ordner mit Ümlaut";
    std::string source = test.root() + "/mes fichiers/résumé été.txt";
    TVKFileHelper::createDirectoryAtPath(folder);
    TVKFileHelper::createDirectoryAtPath(test.root() + "/mes fichiers");
    ASSERT_TRUE(TVKFileHelper::writeString("déjà vu", source));
    TVKFileHelper::moveFileFromPath(source, folder);
    EXPECT_FALSE(fs::exists(source));
    EXPECT_EQ(TVKFileHelper::stringWithContentsOfFileAtPath(folder + "/résumé été.txt"), "déjà vu");
}

TEST(FileHelperCopy, VanishedSourceFailsWithTheCopyMessage) {
    TestRuntime test;
    turnDebugOn();
    std::string source = test.root() + "/gone.txt";
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(source, test.root() + "/x"));
    EXPECT_EQ(test.consoleLines(),
              std::vector<std::string>{"Tarvik Error -- FAILED to copy file: " + source +
                                       " \n into folder : " + test.root() +
                                       "/x \n No such file or directory"});
}

TEST(FileHelperCopy, MoveRemovesTheSourceOnlyAfterACopy) {
    TestRuntime test;
    std::string source = test.root() + "/item.txt";
    writeFile(source, "payload");

    TVKFileHelper::moveFileFromPath(source, test.root());  // refused: onto itself
    TVKFileHelper::moveFileFromPath(source, test.root() + "/no-such-folder");
    EXPECT_EQ(readFile(source), "payload");

    TVKFileHelper::createDirectoryAtPath(test.root() + "/Sent");
    TVKFileHelper::moveFileFromPath(source, test.root() + "/Sent");
    EXPECT_FALSE(fs::exists(source));
    EXPECT_EQ(readFile(test.root() + "/Sent/item.txt"), "payload");
}

TEST(FileHelperCopy, AMoveWithinOneFileSystemIsARenameThatReplacesTheTarget) {
    // A rename cannot be cut in half by the app being killed, as a copy can.
    TestRuntime test;
    std::string source = test.root() + "/Processing/ABC";
    fs::create_directories(source + "/tarvik_attachments");
    fs::create_directories(test.root() + "/Queued/ABC");
    writeFile(source + "/tarvik_attachments/log.txt", "log");
    writeFile(test.root() + "/Queued/ABC/stale.txt", "stale");
    auto inodeOf = [](const std::string& path) {
        struct stat info {};
        return ::stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
    };
    ino_t before = inodeOf(source);

    TVKFileHelper::moveFileFromPath(source, test.root() + "/Queued");
    EXPECT_EQ(inodeOf(test.root() + "/Queued/ABC"), before);
    EXPECT_FALSE(fs::exists(source));
    EXPECT_FALSE(fs::exists(test.root() + "/Queued/ABC/stale.txt"));
    EXPECT_EQ(readFile(test.root() + "/Queued/ABC/tarvik_attachments/log.txt"), "log");
}

// ----------------------------------------------------------------------------------------------

TEST(FileHelperReadOnlyFolder, CreateWriteAndCopyIntoItFailCleanly) {
    TestRuntime test;
    turnDebugOn();
    std::string locked = test.root() + "/locked";
    std::string source = test.root() + "/source.txt";
    TVKFileHelper::createDirectoryAtPath(locked);
    writeFile(source, "x");
    ::chmod(locked.c_str(), 0555);
    PermissionsEnforced enforced;
    if (!folderRefusesNewFiles(locked)) {
        GTEST_SKIP() << "this process can write into read-only folders";
    }

    TVKFileHelper::createDirectoryAtPath(locked + "/dir");
    TVKFileHelper::createFileAtPath(locked + "/file");
    bool written = TVKFileHelper::writeString("text", locked + "/string.txt");
    bool copied = TVKFileHelper::copyFileFromPath(source, locked);
    TVKFileHelper::writeDictionary({{"k", 1}}, locked + "/dict.json");

    EXPECT_FALSE(written);
    EXPECT_FALSE(copied);
    EXPECT_TRUE(fs::is_empty(locked));
    EXPECT_EQ(readFile(source), "x");
    std::vector<std::string> lines = test.consoleLines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "Tarvik Error -- FAILED to create DIRECTORY: " + locked +
                            "/dir \n Permission denied");
    EXPECT_EQ(lines[1], "Tarvik Error -- FAILED to create FILE: " + locked + "/file \n (null)");
    EXPECT_EQ(lines[2], "Tarvik Error -- FAILED to write String text \n to file: " + locked +
                            "/string.txt \n");
    EXPECT_EQ(lines[3], "Tarvik Error -- FAILED to copy file: " + source +
                            " \n into folder : " + locked + " \n Permission denied");
    EXPECT_EQ(lines[4], "Tarvik Error -- FAILED to write dictionary to file: " + locked +
                            "/dict.json \n Permission denied");
}

TEST(FileHelperReadOnlyFolder, RemovingFromItFailsWithTheRemoveMessage) {
    TestRuntime test;
    turnDebugOn();
    std::string locked = test.root() + "/locked";
    TVKFileHelper::createDirectoryAtPath(locked);
    writeFile(locked + "/stays", "x");
    ::chmod(locked.c_str(), 0555);
    PermissionsEnforced enforced;
    if (!folderRefusesNewFiles(locked)) {
        GTEST_SKIP() << "this process can write into read-only folders";
    }

    TVKFileHelper::removeFileAtPath(locked + "/stays");
    EXPECT_TRUE(fs::exists(locked + "/stays"));
    EXPECT_EQ(test.consoleLines(),
              std::vector<std::string>{"Tarvik Error -- FAILED to remove file: " + locked +
                                       "/stays \n Permission denied"});
}

// ----------------------------------------------------------------------------------------------

TEST(FileHelperSizeLimit, CompressibleFilesGetTenTimesTheLimit) {
    TestRuntime test;
    turnDebugOn();
    std::string json = test.root() + "/big.json";
    std::string png = test.root() + "/big.png";
    writeFile(json, std::string(150000, 'a'));
    writeFile(png, std::string(150000, 'a'));
    EXPECT_FALSE(TVKFileHelper::fileSizeTooBig(json));
    EXPECT_TRUE(TVKFileHelper::fileSizeTooBig(png));
    EXPECT_EQ(test.consoleLines(),
              std::vector<std::string>{"big.png is of size 150000. Limit is 102400"});
}

TEST(FileHelperSizeLimit, LimitsAreInclusive) {
    TestRuntime test;
    turnDebugOn();
    auto tooBig = [&](const std::string& name, size_t size) {
        writeFile(test.root() + "/" + name, std::string(size, 'z'));
        return TVKFileHelper::fileSizeTooBig(test.root() + "/" + name);
    };
    EXPECT_FALSE(tooBig("at.bin", 102400));
    EXPECT_TRUE(tooBig("over.bin", 102401));
    // "log" is text/plain in the MIME table, so the tenfold limit applies.
    EXPECT_FALSE(tooBig("at.log", 1024000));
    EXPECT_TRUE(tooBig("over.log", 1024001));
    EXPECT_EQ(test.consoleLines(),
              (std::vector<std::string>{"over.bin is of size 102401. Limit is 102400",
                                        "over.log is of size 1024001. Limit is 102400"}));
}

TEST(FileHelperSizeLimit, ExtensionTestIsCaseSensitiveButMimeLookupIsNot) {
    TestRuntime test;
    writeFile(test.root() + "/upper.JSON", std::string(150000, 'a'));
    writeFile(test.root() + "/upper.TXT", std::string(150000, 'a'));
    EXPECT_TRUE(TVKFileHelper::fileSizeTooBig(test.root() + "/upper.JSON"));
    EXPECT_FALSE(TVKFileHelper::fileSizeTooBig(test.root() + "/upper.TXT"));
}

TEST(FileHelperSizeLimit, MissingFileAndFolderAreTooBig) {
    TestRuntime test;
    turnDebugOn();
    std::string missing = test.root() + "/missing.json";
    std::string folder = test.root() + "/folder.json";
    TVKFileHelper::createDirectoryAtPath(folder);
    EXPECT_TRUE(TVKFileHelper::fileSizeTooBig(missing));
    EXPECT_TRUE(TVKFileHelper::fileSizeTooBig(folder));
    EXPECT_EQ(test.consoleLines(),
              (std::vector<std::string>{
                  "Tarvik Error - FAILED to get filehandle for file at path : " + missing,
                  "Tarvik Error - FAILED to get filehandle for file at path : " + folder}));
}

TEST(FileHelperSizeLimit, ShouldZipTextTypesAndTextExtensions) {
    TestRuntime test;
    EXPECT_TRUE(TVKFileHelper::shouldZipFileWithExtension("xml", std::nullopt));
    EXPECT_TRUE(TVKFileHelper::shouldZipFileWithExtension("plist", std::nullopt));
    EXPECT_TRUE(TVKFileHelper::shouldZipFileWithExtension("geojson", std::nullopt));
    EXPECT_TRUE(TVKFileHelper::shouldZipFileWithExtension("png", "text/plain"));
    EXPECT_TRUE(
        TVKFileHelper::shouldZipFileWithExtension("", "application/vnd.oasis.opendocument.text"));
    EXPECT_TRUE(TVKFileHelper::shouldZipFileWithExtension("json", "image/png"));
    EXPECT_FALSE(TVKFileHelper::shouldZipFileWithExtension("JSON", std::nullopt));
    EXPECT_FALSE(TVKFileHelper::shouldZipFileWithExtension("Plist", "application/x-plist"));
    EXPECT_FALSE(TVKFileHelper::shouldZipFileWithExtension("png", "image/png"));
    EXPECT_FALSE(TVKFileHelper::shouldZipFileWithExtension("", std::nullopt));
}

// ----------------------------------------------------------------------------------------------

TEST(FileHelperAppend, StringCreatesAMissingFileAndExtendsAnExistingOne) {
    TestRuntime test;
    std::string file = test.root() + "/console.log";
    EXPECT_TRUE(TVKFileHelper::appendString("first ", file));
    EXPECT_TRUE(TVKFileHelper::appendString("second ü", file));
    EXPECT_EQ(readFile(file), "first second ü");
}

TEST(FileHelperAppend, StringIntoAMissingFolderFailsWithTheWriteMessage) {
    TestRuntime test;
    turnDebugOn();
    std::string file = test.root() + "/nowhere/console.log";
    EXPECT_FALSE(TVKFileHelper::appendString("hello", file));
    EXPECT_EQ(test.consoleLines(),
              std::vector<std::string>{
                  "Tarvik Error -- FAILED to write String hello \n to file: " + file + " \n"});
}

TEST(FileHelperAppend, StringThatCannotBeWrittenFailsWithTheAppendMessage) {
    TestRuntime test;
    turnDebugOn();
    // /dev/full opens for writing and refuses every write, as a full disk does.
    if (!fs::exists("/dev/full")) {
        GTEST_SKIP() << "no /dev/full on this system";
    }
    EXPECT_FALSE(TVKFileHelper::appendString("line", "/dev/full"));
    EXPECT_EQ(test.consoleLines(),
              std::vector<std::string>{
                  "Tarvik Error -- FAILED to Append String line \n to file: /dev/full \n"});
}

class FileHelperAppendSizes : public ::testing::TestWithParam<size_t> {};

TEST_P(FileHelperAppendSizes, ReproducesTheBytesExactly) {
    TestRuntime test;
    std::string source = test.root() + "/source.bin";
    std::string target = test.root() + "/target.bin";
    std::string bytes = patternedBytes(GetParam());
    writeFile(source, bytes);
    writeFile(target, "HEAD");
    EXPECT_TRUE(TVKFileHelper::appendFileAtPath(source, target));
    EXPECT_TRUE(sameBytes(readFile(target), "HEAD" + bytes));
    EXPECT_TRUE(sameBytes(readFile(source), bytes));
}

INSTANTIATE_TEST_SUITE_P(FileHelperAppend, FileHelperAppendSizes,
                         ::testing::Values(0, 1023, 1024, 1025, 5000));

TEST(FileHelperAppend, FileOntoItselfDoublesIt) {
    TestRuntime test;
    std::string file = test.root() + "/self.bin";
    std::string bytes = patternedBytes(3000);
    writeFile(file, bytes);
    EXPECT_TRUE(TVKFileHelper::appendFileAtPath(file, file));
    EXPECT_TRUE(sameBytes(readFile(file), bytes + bytes));
}

TEST(FileHelperAppend, MissingTargetReceivesNothingButCountsAsDone) {
    TestRuntime test;
    turnDebugOn();
    std::string source = test.root() + "/source.bin";
    writeFile(source, "abc");
    EXPECT_TRUE(TVKFileHelper::appendFileAtPath(source, test.root() + "/missing.bin"));
    EXPECT_FALSE(fs::exists(test.root() + "/missing.bin"));
    EXPECT_TRUE(test.consoleLines().empty());
}

TEST(FileHelperAppend, SourceThatCannotBeReadFailsWithTheReaderMessage) {
    TestRuntime test;
    turnDebugOn();
    std::string target = test.root() + "/target.bin";
    std::string missing = test.root() + "/vanished.bin";
    std::string folder = test.root() + "/folder";
    std::string unreadable = test.root() + "/secret.bin";
    writeFile(target, "kept");
    TVKFileHelper::createDirectoryAtPath(folder);
    writeFile(unreadable, "secret");
    ::chmod(unreadable.c_str(), 0200);
    PermissionsEnforced enforced;
    if (readFile(unreadable) == "secret") {
        GTEST_SKIP() << "this process can read files without read permission";
    }

    EXPECT_FALSE(TVKFileHelper::appendFileAtPath(missing, target));
    EXPECT_FALSE(TVKFileHelper::appendFileAtPath(folder, target));
    EXPECT_FALSE(TVKFileHelper::appendFileAtPath(unreadable, target));
    EXPECT_EQ(readFile(target), "kept");
    const std::string message = "Tarvik Error -- Nil fileReader, FAILED to attach data to file: ";
    EXPECT_EQ(test.consoleLines(), (std::vector<std::string>{message + missing, message + folder,
                                                             message + unreadable}));
}

// ----------------------------------------------------------------------------------------------

TEST(FileHelperListing, ListsFilesAndFoldersDeeplyWithHiddenOnes) {
    TestRuntime test;
    std::string folder = test.root() + "/tree";
    TVKFileHelper::createDirectoryAtPath(folder + "/sub/deeper");
    TVKFileHelper::createDirectoryAtPath(folder + "/empty");
    writeFile(folder + "/a.txt", "a");
    writeFile(folder + "/.hidden", "h");
    writeFile(folder + "/sub/b.txt", "b");
    writeFile(folder + "/sub/deeper/.c", "c");
    fs::create_directory_symlink(folder + "/sub", folder + "/link");

    std::vector<std::string> listed = TVKFileHelper::fileURLsInDirectoryAtPath(folder);

    // find(1) is the reference; it does not follow the symbolic link either.
    auto found = runCommand("find " + shellQuoted(folder) + " -mindepth 1");
    ASSERT_EQ(found.exitCode, 0) << found.output;
    std::vector<std::string> expected;
    std::istringstream lines(found.output);
    for (std::string line; std::getline(lines, line);) {
        expected.push_back(line);
    }
    EXPECT_EQ(expected.size(), 8u);
    std::vector<std::string> sorted = listed;
    std::sort(sorted.begin(), sorted.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(sorted, expected);

    auto position = [&](const std::string& path) {
        return std::find(listed.begin(), listed.end(), folder + path) - listed.begin();
    };
    EXPECT_LT(position("/sub"), position("/sub/deeper"));
    EXPECT_LT(position("/sub/deeper"), position("/sub/deeper/.c"));
}

TEST(FileHelperListing, MissingFolderGivesNothingAndTheListingMessage) {
    TestRuntime test;
    turnDebugOn();
    std::string folder = test.root() + "/absent";
    EXPECT_TRUE(TVKFileHelper::fileURLsInDirectoryAtPath(folder).empty());
    EXPECT_EQ(test.consoleLines(),
              std::vector<std::string>{"Tarvik Error -- FAILED to get files in folder at path: " +
                                       folder + " \n No such file or directory"});
}

TEST(FileHelperListing, ContinuesPastAFolderItCannotRead) {
    TestRuntime test;
    turnDebugOn();
    std::string folder = test.root() + "/tree";
    TVKFileHelper::createDirectoryAtPath(folder + "/a-locked");
    TVKFileHelper::createDirectoryAtPath(folder + "/b-open");
    writeFile(folder + "/a-locked/hidden-from-us", "x");
    writeFile(folder + "/b-open/visible", "x");
    ::chmod((folder + "/a-locked").c_str(), 0);
    PermissionsEnforced enforced;
    if (folderCanBeListed(folder + "/a-locked")) {
        GTEST_SKIP() << "this process can read folders without read permission";
    }

    std::vector<std::string> listed = TVKFileHelper::fileURLsInDirectoryAtPath(folder);
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed, (std::vector<std::string>{folder + "/a-locked", folder + "/b-open",
                                                folder + "/b-open/visible"}));
    EXPECT_EQ(test.consoleLines(),
              std::vector<std::string>{"Tarvik Error -- FAILED to get files in folder at path: " +
                                       folder + " \n Permission denied"});
}

// ----------------------------------------------------------------------------------------------

TEST(FileHelperAttributes, ItemAttributesDescribeTheItemItself) {
    TestRuntime test;
    std::string file = test.root() + "/file.bin";
    std::string link = test.root() + "/link";
    writeFile(file, std::string(1234, 'x'));
    fs::create_symlink(file, link);

    auto attributes = TVKFileHelper::attributesOfItemAtPath(file);
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->at("NSFileSize"), Value(1234));
    EXPECT_EQ(attributes->at("NSFileType"), Value("NSFileTypeRegular"));
    EXPECT_EQ(TVKFileHelper::sizeOfFileAtPath(file), 1234u);
    EXPECT_EQ(TVKFileHelper::attributesOfItemAtPath(test.root())->at("NSFileType"),
              Value("NSFileTypeDirectory"));
    auto linkAttributes = TVKFileHelper::attributesOfItemAtPath(link);
    ASSERT_TRUE(linkAttributes);
    EXPECT_EQ(linkAttributes->at("NSFileType"), Value("NSFileTypeSymbolicLink"));
    EXPECT_EQ(linkAttributes->at("NSFileSize"), Value(static_cast<int64_t>(file.size())));

    std::optional<Date> created = TVKFileHelper::creationDateOfFileAtPath(file);
    ASSERT_TRUE(created);
    auto age = std::chrono::system_clock::now() - *created;
    EXPECT_GT(age, -std::chrono::minutes(1));
    EXPECT_LT(age, std::chrono::minutes(10));
}

TEST(FileHelperAttributes, MissingItemGivesNoneZeroAndTheItemMessage) {
    TestRuntime test;
    turnDebugOn();
    std::string missing = test.root() + "/missing";
    EXPECT_FALSE(TVKFileHelper::attributesOfItemAtPath(missing));
    EXPECT_EQ(TVKFileHelper::sizeOfFileAtPath(missing), 0u);
    EXPECT_FALSE(TVKFileHelper::creationDateOfFileAtPath(missing));
    std::string message = "Tarvik Error -- FAILED to get attributes of ITEM at path: " + missing +
                          " \n No such file or directory";
    EXPECT_EQ(test.consoleLines(), (std::vector<std::string>{message, message, message}));
}

TEST(FileHelperAttributes, FileSystemAttributesMatchStatvfs) {
    TestRuntime test;
    turnDebugOn();
    auto attributes = TVKFileHelper::attributesOfFileSystemForPath(test.root());
    ASSERT_TRUE(attributes);
    std::int64_t size = attributes->at("NSFileSystemSize").integerValue();
    std::int64_t free = attributes->at("NSFileSystemFreeSize").integerValue();
    EXPECT_GT(size, 0);
    EXPECT_GE(free, 0);
    EXPECT_LE(free, size);
    auto reference =
        runPython("import os, sys\ns = os.statvfs(sys.argv[1])\nprint(s.f_blocks * s.f_frsize)",
                  shellQuoted(test.root()));
    ASSERT_EQ(reference.exitCode, 0) << reference.output;
    EXPECT_EQ(std::to_string(size) + "\n", reference.output);

    std::string missing = test.root() + "/missing";
    EXPECT_FALSE(TVKFileHelper::attributesOfFileSystemForPath(missing));
    EXPECT_EQ(test.consoleLines(),
              std::vector<std::string>{
                  "Tarvik Error -- FAILED to get attributes of FILE SYSTEM for path: " + missing +
                  " \n No such file or directory"});
}

// ----------------------------------------------------------------------------------------------

TEST(FileHelperStrings, WriteReplacesTheWholeFileAndReadsBack) {
    TestRuntime test;
    std::string file = test.root() + "/text.txt";
    writeFile(file, "a much longer earlier text");
    ASSERT_TRUE(TVKFileHelper::writeString("Grüße", file));
    EXPECT_EQ(readFile(file), "Grüße");
    EXPECT_EQ(TVKFileHelper::stringWithContentsOfFileAtPath(file), "Grüße");
}

TEST(FileHelperStrings, ReadingRefusesFoldersAndBadUtf8WithTheReadMessage) {
    TestRuntime test;
    turnDebugOn();
    std::string latin1 = test.root() + "/latin1.txt";
    std::string folder = test.root() + "/folder";
    writeFile(latin1, "caf\xe9");
    TVKFileHelper::createDirectoryAtPath(folder);
    EXPECT_FALSE(TVKFileHelper::stringWithContentsOfFileAtPath(latin1));
    EXPECT_FALSE(TVKFileHelper::stringWithContentsOfFileAtPath(folder));
    const std::string message = "Tarvik Error -- FAILED to read into string file at path : ";
    EXPECT_EQ(test.consoleLines(), (std::vector<std::string>{message + latin1, message + folder}));
}

TEST(FileHelperStrings, DictionaryIsWrittenAsCompactJson) {
    TestRuntime test;
    std::string file = test.root() + "/settings.json";
    writeFile(file, std::string(200, ' ') + "trailing garbage");
    TVKFileHelper::writeDictionary(
        {{"name", "Zoë"}, {"count", 3}, {"flags", Array{true, 1.5, "a/b"}}}, file);
    EXPECT_EQ(readFile(file), R"({"count":3,"flags":[true,1.5,"a/b"],"name":"Zoë"})");
}

TEST(FileHelperStrings, DictionaryJsonCannotCarryLeavesTheFileAlone) {
    TestRuntime test;
    turnDebugOn();
    std::string file = test.root() + "/settings.json";
    writeFile(file, "{}");
    TVKFileHelper::writeDictionary({{"when", Date{}}}, file);
    EXPECT_EQ(readFile(file), "{}");
    std::vector<std::string> lines = test.consoleLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(
        lines[0].rfind("Tarvik Error -- FAILED to write dictionary to file: " + file + " \n ", 0),
        0u);
}

// ----------------------------------------------------------------------------------------------

TEST(FileHelperMessages, FailuresAreSilentOutsideDebugMode) {
    TestRuntime test;
    std::string missing = test.root() + "/missing/file";
    TVKFileHelper::createFileAtPath(missing);
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(missing, test.root() + "/x"));
    EXPECT_TRUE(TVKFileHelper::fileSizeTooBig(missing));
    EXPECT_FALSE(TVKFileHelper::appendFileAtPath(missing, test.root() + "/x"));
    EXPECT_FALSE(TVKFileHelper::stringWithContentsOfFileAtPath(missing));
    EXPECT_FALSE(TVKFileHelper::writeString("s", missing));
    EXPECT_TRUE(TVKFileHelper::fileURLsInDirectoryAtPath(missing).empty());
    EXPECT_EQ(TVKFileHelper::sizeOfFileAtPath(missing), 0u);
    EXPECT_TRUE(test.consoleLines().empty());

    // The same calls speak once debug mode is on.
    turnDebugOn();
    EXPECT_TRUE(TVKFileHelper::fileSizeTooBig(missing));
    EXPECT_EQ(test.consoleLines().size(), 1u);
}

}  // namespace
}  // namespace tarvik
