#include "Helpers/TVKFileHelper.h"
#include "Helpers/Tarvik_ZipFile.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/Files.h"
#include "support/ReadOnlyFolder.h"
#include "support/ZipArchiveChecks.h"

#include <tarvik/Tarvik.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include <sys/stat.h>

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using testing::TestRuntime;
using testsupport::expectUnzipTestPasses;
using testsupport::PythonZipEntry;
using testsupport::readFile;
using testsupport::ReadOnlyFolder;
using testsupport::readZipWithPython;
using testsupport::writeFile;
using Lines = std::vector<std::string>;

// The start and the usual ends of the helper's console lines.
const std::string kFailed = "Tarvik Error -- FAILED to ";
const std::string kNoSuchFile = " \n No such file or directory";
const std::string kDenied = " \n Permission denied";

// Bytes whose pattern does not repeat every 1024 bytes, so a chunk written twice, skipped or
// out of order shows up.
std::string patternedBytes(size_t length) {
    std::string bytes(length, '\0');
    for (size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xff);
    }
    return bytes;
}

// The helper's failures are console lines, written only in debug mode: the tests run in it.
class FileHelper : public ::testing::Test {
  protected:
    FileHelper() { Tarvik::sharedInstance().setDebug(true); }

    std::string at(const std::string& relativePath) const {
        return test.root() + "/" + relativePath;
    }

    TestRuntime test;
};

TEST_F(FileHelper, CreateMakesParentFoldersForFoldersOnly) {
    TVKFileHelper::createDirectoryAtPath(at("a/b/c"));
    TVKFileHelper::createFileAtPath(at("a/with.bin"), Data{0, 1, 2, 0xff, 0});
    TVKFileHelper::createFileAtPath(at("a/empty.bin"));
    EXPECT_TRUE(fs::is_directory(at("a/b/c")));
    EXPECT_EQ(readFile(at("a/with.bin")), std::string("\0\1\2\xff\0", 5));
    EXPECT_EQ(fs::file_size(at("a/empty.bin")), 0u);

    // Whatever exists already is left as it is, silently.
    TVKFileHelper::createDirectoryAtPath(at("a"));
    TVKFileHelper::createFileAtPath(at("a/b"), Data{'x'});
    TVKFileHelper::createFileAtPath(at("a/with.bin"), Data{'n', 'e', 'w'});
    EXPECT_TRUE(fs::is_directory(at("a/b/c")));
    EXPECT_EQ(readFile(at("a/with.bin")), std::string("\0\1\2\xff\0", 5));
    EXPECT_TRUE(test.consoleLines().empty());

    TVKFileHelper::createFileAtPath(at("missing/file.txt"));
    EXPECT_FALSE(fs::exists(at("missing")));
    EXPECT_EQ(test.consoleLines(),
              Lines{kFailed + "create FILE: " + at("missing/file.txt") + " \n (null)"});
}

TEST_F(FileHelper, RemoveTakesWholeFoldersAndClearEmptiesFilesBothSkipMissingPaths) {
    TVKFileHelper::createDirectoryAtPath(at("tree/sub"));
    writeFile(at("tree/sub/file"), "x");
    writeFile(at("log.txt"), "some text");
    TVKFileHelper::removeFileAtPath(at("tree"));
    TVKFileHelper::removeFileAtPath(at("never-there"));
    TVKFileHelper::clearFileAtPath(at("log.txt"));
    TVKFileHelper::clearFileAtPath(at("absent.txt"));
    EXPECT_FALSE(fs::exists(at("tree")));
    EXPECT_EQ(fs::file_size(at("log.txt")), 0u);
    EXPECT_FALSE(fs::exists(at("absent.txt")));
    EXPECT_TRUE(test.consoleLines().empty());
}

// ----------------------------------------------------------------------------------------------

// The refusal is a test on the path text: the destination must not contain the source's path,
// so even a sibling whose name starts like the source is refused.
TEST_F(FileHelper, CopyRefusesDestinationsContainingTheSourcePath) {
    writeFile(at("report.txt"), "original");
    TVKFileHelper::createDirectoryAtPath(at("folder/sub"));
    TVKFileHelper::createDirectoryAtPath(at("report.txt-archive"));
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(at("report.txt"), test.root()));
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(at("report.txt"), test.root() + "/"));
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(at("folder"), at("folder/sub")));
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(at("report.txt"), at("report.txt-archive")));
    EXPECT_EQ(readFile(at("report.txt")), "original");
    EXPECT_FALSE(fs::exists(at("folder/sub/folder")));
    EXPECT_TRUE(fs::is_empty(at("report.txt-archive")));
    EXPECT_TRUE(test.consoleLines().empty());

    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(at("gone.txt"), at("x")));
    EXPECT_EQ(test.consoleLines(), Lines{kFailed + "copy file: " + at("gone.txt") +
                                         " \n into folder : " + at("x") + kNoSuchFile});
}

// A folder is copied with everything in it, over whatever had its name at the destination.
TEST_F(FileHelper, CopyTakesFoldersWholeAndReplacesWhatIsAtTheDestination) {
    TVKFileHelper::createDirectoryAtPath(at("submission/attachments"));
    writeFile(at("submission/info.plist"), "plist");
    writeFile(at("submission/attachments/.hidden"), "hidden");
    TVKFileHelper::createDirectoryAtPath(at("Queued/submission/stale"));
    ASSERT_TRUE(TVKFileHelper::copyFileFromPath(at("submission"), at("Queued")));
    EXPECT_EQ(readFile(at("Queued/submission/info.plist")), "plist");
    EXPECT_EQ(readFile(at("Queued/submission/attachments/.hidden")), "hidden");
    EXPECT_FALSE(fs::exists(at("Queued/submission/stale")));
    EXPECT_EQ(readFile(at("submission/info.plist")), "plist");
}

// A move within one file system is a rename, which the app being killed cannot cut in half as it
// can a copy; where it cannot happen, the source stays.
TEST_F(FileHelper, MoveRenamesOverTheTargetAndKeepsTheSourceWhenRefused) {
    fs::create_directories(at("Processing/ABC/tarvik_attachments"));
    fs::create_directories(at("Queued/ABC"));
    writeFile(at("Processing/ABC/tarvik_attachments/log.txt"), "log");
    writeFile(at("Queued/ABC/stale.txt"), "stale");
    auto inodeOf = [](const std::string& path) {
        struct stat info {};
        return ::stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
    };
    ino_t before = inodeOf(at("Processing/ABC"));

    TVKFileHelper::moveFileFromPath(at("Processing/ABC"), at("Processing"));  // onto itself
    TVKFileHelper::moveFileFromPath(at("Processing/ABC"), at("no-such-folder"));
    ASSERT_EQ(inodeOf(at("Processing/ABC")), before);
    TVKFileHelper::moveFileFromPath(at("Processing/ABC"), at("Queued"));
    EXPECT_EQ(inodeOf(at("Queued/ABC")), before);
    EXPECT_FALSE(fs::exists(at("Processing/ABC")));
    EXPECT_FALSE(fs::exists(at("Queued/ABC/stale.txt")));
    EXPECT_EQ(readFile(at("Queued/ABC/tarvik_attachments/log.txt")), "log");
}

TEST_F(FileHelper, ReadOnlyFolderRefusesEveryChangeWithItsMessage) {
    writeFile(at("source.txt"), "x");
    fs::create_directory(at("locked"));
    writeFile(at("locked/stays"), "x");
    ReadOnlyFolder locked(at("locked"));
    if (!locked.refusesNewFiles()) {
        GTEST_SKIP() << "this process can write into read-only folders";
    }
    const std::string folder = locked.path();

    TVKFileHelper::createDirectoryAtPath(folder + "/dir");
    TVKFileHelper::createFileAtPath(folder + "/file");
    EXPECT_FALSE(TVKFileHelper::writeString("text", folder + "/string.txt"));
    EXPECT_FALSE(TVKFileHelper::copyFileFromPath(at("source.txt"), folder));
    TVKFileHelper::writeDictionary({{"k", 1}}, folder + "/dict.json");
    TVKFileHelper::removeFileAtPath(folder + "/stays");

    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
    EXPECT_EQ(readFile(folder + "/stays"), "x");
    EXPECT_EQ(
        test.consoleLines(),
        (Lines{kFailed + "create DIRECTORY: " + folder + "/dir" + kDenied,
               kFailed + "create FILE: " + folder + "/file \n (null)",
               kFailed + "write String text \n to file: " + folder + "/string.txt \n",
               kFailed + "copy file: " + at("source.txt") + " \n into folder : " + folder + kDenied,
               kFailed + "write dictionary to file: " + folder + "/dict.json" + kDenied,
               kFailed + "remove file: " + folder + "/stays" + kDenied}));
}

// ----------------------------------------------------------------------------------------------

// Text types get ten times the 100 KiB limit, and both limits are inclusive. The extension test
// is case sensitive ("JSON" is not text), the MIME lookup is not ("TXT" is text/plain).
TEST_F(FileHelper, SizeLimitIsTenfoldForTextAndInclusive) {
    struct Case {
        std::string name;
        size_t size;
        bool tooBig;
    };
    const Case cases[] = {
        {"at.bin", 102400, false},   {"over.bin", 102401, true},   {"at.log", 1024000, false},
        {"over.log", 1024001, true}, {"upper.JSON", 150000, true}, {"upper.TXT", 150000, false},
    };
    for (const Case& c : cases) {
        writeFile(at(c.name), std::string(c.size, 'z'));
        EXPECT_EQ(TVKFileHelper::fileSizeTooBig(at(c.name)), c.tooBig) << c.name;
    }
    // What cannot be opened as a file counts as too big.
    TVKFileHelper::createDirectoryAtPath(at("folder.json"));
    EXPECT_TRUE(TVKFileHelper::fileSizeTooBig(at("missing.json")));
    EXPECT_TRUE(TVKFileHelper::fileSizeTooBig(at("folder.json")));
    // The message names the base limit even where the tenfold one applied.
    const std::string noHandle = "Tarvik Error - FAILED to get filehandle for file at path : ";
    EXPECT_EQ(test.consoleLines(),
              (Lines{"over.bin is of size 102401. Limit is 102400",
                     "over.log is of size 1024001. Limit is 102400",
                     "upper.JSON is of size 150000. Limit is 102400", noHandle + at("missing.json"),
                     noHandle + at("folder.json")}));
}

TEST_F(FileHelper, ShouldZipTextTypesAndTextExtensions) {
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

// A string that cannot go into a new file is "not written"; one refused by an open file (as
// /dev/full refuses every write, like a full disk) is "not appended".
TEST_F(FileHelper, AppendStringCreatesOrExtendsAndReportsWhatItCannotWrite) {
    EXPECT_TRUE(TVKFileHelper::appendString("first ", at("console.log")));
    EXPECT_TRUE(TVKFileHelper::appendString("second ü", at("console.log")));
    EXPECT_EQ(readFile(at("console.log")), "first second ü");

    EXPECT_FALSE(TVKFileHelper::appendString("hello", at("nowhere/console.log")));
    EXPECT_FALSE(TVKFileHelper::appendString("line", "/dev/full"));
    EXPECT_EQ(
        test.consoleLines(),
        (Lines{kFailed + "write String hello \n to file: " + at("nowhere/console.log") + " \n",
               "Tarvik Error -- FAILED to Append String line \n to file: /dev/full \n"}));
}

// Appending a file and zipping it both read the source in 1024-byte chunks: sizes around those.
class FileHelperChunks : public FileHelper, public ::testing::WithParamInterface<size_t> {};

TEST_P(FileHelperChunks, AppendAndZipReproduceTheBytesExactly) {
    std::string bytes = patternedBytes(GetParam());
    writeFile(at("source.log"), bytes);
    writeFile(at("target.bin"), "HEAD");
    EXPECT_TRUE(TVKFileHelper::appendFileAtPath(at("source.log"), at("target.bin")));
    EXPECT_TRUE(readFile(at("target.bin")) == "HEAD" + bytes);
    EXPECT_TRUE(readFile(at("source.log")) == bytes);

    // The archive, replacing any at its path, holds one entry named after the source file alone
    // and deflated at the best level (which sets the flag bit of value 2).
    ASSERT_TRUE(TVKFileHelper::zipFileAtPath(at("target.bin"), at("temp.zip")));
    ASSERT_TRUE(TVKFileHelper::zipFileAtPath(at("source.log"), at("temp.zip")));
    expectUnzipTestPasses(at("temp.zip"));
    std::vector<PythonZipEntry> seen = readZipWithPython(at("temp.zip"));
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].name, "source.log");
    EXPECT_EQ(seen[0].method, 8);
    EXPECT_EQ(seen[0].flags & 6, 2u);
    EXPECT_TRUE(seen[0].contents == Data(bytes.begin(), bytes.end()));
}

INSTANTIATE_TEST_SUITE_P(FileHelper, FileHelperChunks,
                         ::testing::Values(0, 1023, 1024, 1025, 5121, 1 << 20));

// The bytes appended are those the file had when the append began.
TEST_F(FileHelper, AppendFileOntoItselfDoublesIt) {
    std::string bytes = patternedBytes(3000);
    writeFile(at("self.bin"), bytes);
    EXPECT_TRUE(TVKFileHelper::appendFileAtPath(at("self.bin"), at("self.bin")));
    EXPECT_TRUE(readFile(at("self.bin")) == bytes + bytes);
}

// Without a target the bytes go nowhere and the append still counts as done; a source that
// cannot be read as a file fails.
TEST_F(FileHelper, AppendFileNeedsAReadableSourceButNotATarget) {
    writeFile(at("target.bin"), "kept");
    TVKFileHelper::createDirectoryAtPath(at("folder"));
    EXPECT_TRUE(TVKFileHelper::appendFileAtPath(at("target.bin"), at("missing.bin")));
    EXPECT_FALSE(fs::exists(at("missing.bin")));
    EXPECT_FALSE(TVKFileHelper::appendFileAtPath(at("vanished.bin"), at("target.bin")));
    EXPECT_FALSE(TVKFileHelper::appendFileAtPath(at("folder"), at("target.bin")));
    EXPECT_EQ(readFile(at("target.bin")), "kept");
    const std::string message = "Tarvik Error -- Nil fileReader, FAILED to attach data to file: ";
    EXPECT_EQ(test.consoleLines(), (Lines{message + at("vanished.bin"), message + at("folder")}));
}

// A missing source is reported by the result (and on the console in debug mode only); an
// archive that cannot be created throws, the zip layer's exception reaching the caller.
TEST_F(FileHelper, ZipFailsOnAMissingSourceAndThrowsOnAnArchiveItCannotCreate) {
    Tarvik::sharedInstance().setDebug(false);
    EXPECT_FALSE(TVKFileHelper::zipFileAtPath(at("missing.txt"), at("temp.zip")));
    EXPECT_TRUE(test.consoleLines().empty());
    Tarvik::sharedInstance().setDebug(true);
    EXPECT_FALSE(TVKFileHelper::zipFileAtPath(at("missing.txt"), at("temp.zip")));
    EXPECT_EQ(test.consoleLines(),
              Lines{"Tarvik Error -- Nil fileReader, FAILED to zip file: " + at("missing.txt")});
    EXPECT_FALSE(fs::exists(at("temp.zip")));

    writeFile(at("log.txt"), "log");
    std::string archive = at("no such folder/temp.zip");
    try {
        TVKFileHelper::zipFileAtPath(at("log.txt"), archive);
        ADD_FAILURE() << "no exception";
    } catch (const Tarvik_ZipException& exception) {
        EXPECT_EQ(exception.reason(), "Can't open '" + archive + "'");
    }

    // The archive would replace the file it is made from: refused, the file left whole, under
    // another name for it (a symbolic link, a hard link, a path through "..") too.
    fs::create_directory(at("sub"));
    fs::create_symlink(at("log.txt"), at("symbolic.txt"));
    fs::create_hard_link(at("log.txt"), at("hard.txt"));
    for (const std::string& same :
         {at("log.txt"), at("symbolic.txt"), at("hard.txt"), at("sub/../log.txt")}) {
        try {
            TVKFileHelper::zipFileAtPath(at("log.txt"), same);
            ADD_FAILURE() << "no exception for " << same;
        } catch (const Tarvik_ZipException& exception) {
            EXPECT_EQ(exception.reason(), "Can't zip '" + at("log.txt") + "' into itself");
        }
        EXPECT_EQ(readFile(at("log.txt")), "log");
    }
}

// ----------------------------------------------------------------------------------------------

TEST_F(FileHelper, ListingGoesDeepWithHiddenItemsEachFolderBeforeItsContents) {
    std::string folder = at("tree");
    TVKFileHelper::createDirectoryAtPath(folder + "/sub/deeper");
    TVKFileHelper::createDirectoryAtPath(folder + "/empty");
    writeFile(folder + "/a.txt", "a");
    writeFile(folder + "/.hidden", "h");
    writeFile(folder + "/sub/b.txt", "b");
    writeFile(folder + "/sub/deeper/.c", "c");
    fs::create_directory_symlink(folder + "/sub", folder + "/link");

    std::vector<std::string> listed = TVKFileHelper::fileURLsInDirectoryAtPath(folder);
    auto position = [&](const std::string& path) {
        return std::find(listed.begin(), listed.end(), folder + path) - listed.begin();
    };
    EXPECT_LT(position("/sub"), position("/sub/deeper"));
    EXPECT_LT(position("/sub/deeper"), position("/sub/deeper/.c"));
    // Hidden items are listed; the symbolic link is, but not followed.
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed, (Lines{folder + "/.hidden", folder + "/a.txt", folder + "/empty",
                             folder + "/link", folder + "/sub", folder + "/sub/b.txt",
                             folder + "/sub/deeper", folder + "/sub/deeper/.c"}));

    EXPECT_TRUE(TVKFileHelper::fileURLsInDirectoryAtPath(at("absent")).empty());
    EXPECT_EQ(test.consoleLines(),
              Lines{kFailed + "get files in folder at path: " + at("absent") + kNoSuchFile});
}

TEST_F(FileHelper, AttributesDescribeTheItemAndItsFileSystemOrReportItMissing) {
    writeFile(at("file.bin"), std::string(1234, 'x'));
    auto attributes = TVKFileHelper::attributesOfItemAtPath(at("file.bin"));
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->at("NSFileSize"), Value(1234));
    EXPECT_EQ(attributes->at("NSFileType"), Value("NSFileTypeRegular"));
    EXPECT_EQ(TVKFileHelper::sizeOfFileAtPath(at("file.bin")), 1234u);
    EXPECT_EQ(TVKFileHelper::attributesOfItemAtPath(test.root())->at("NSFileType"),
              Value("NSFileTypeDirectory"));

    auto fileSystem = TVKFileHelper::attributesOfFileSystemForPath(test.root());
    ASSERT_TRUE(fileSystem);
    std::int64_t size = fileSystem->at("NSFileSystemSize").integerValue();
    std::int64_t free = fileSystem->at("NSFileSystemFreeSize").integerValue();
    EXPECT_GT(size, 0);
    EXPECT_GE(free, 0);
    EXPECT_LE(free, size);
    EXPECT_TRUE(test.consoleLines().empty());

    std::string missing = at("missing");
    EXPECT_FALSE(TVKFileHelper::attributesOfItemAtPath(missing));
    EXPECT_EQ(TVKFileHelper::sizeOfFileAtPath(missing), 0u);
    EXPECT_FALSE(TVKFileHelper::creationDateOfFileAtPath(missing));
    EXPECT_FALSE(TVKFileHelper::attributesOfFileSystemForPath(missing));
    std::string item = kFailed + "get attributes of ITEM at path: " + missing + kNoSuchFile;
    EXPECT_EQ(
        test.consoleLines(),
        (Lines{item, item, item,
               kFailed + "get attributes of FILE SYSTEM for path: " + missing + kNoSuchFile}));
}

// ----------------------------------------------------------------------------------------------

// Reading refuses what is not a file and text that is not UTF-8, rather than pass on bad bytes.
TEST_F(FileHelper, StringsAreWrittenWholeAndReadOnlyAsUtf8) {
    writeFile(at("text.txt"), "a much longer earlier text");
    ASSERT_TRUE(TVKFileHelper::writeString("Grüße", at("text.txt")));
    EXPECT_EQ(readFile(at("text.txt")), "Grüße");
    EXPECT_EQ(TVKFileHelper::stringWithContentsOfFileAtPath(at("text.txt")), "Grüße");

    writeFile(at("latin1.txt"), "caf\xe9");
    TVKFileHelper::createDirectoryAtPath(at("folder"));
    EXPECT_FALSE(TVKFileHelper::stringWithContentsOfFileAtPath(at("latin1.txt")));
    EXPECT_FALSE(TVKFileHelper::stringWithContentsOfFileAtPath(at("folder")));
    const std::string message = kFailed + "read into string file at path : ";
    EXPECT_EQ(test.consoleLines(), (Lines{message + at("latin1.txt"), message + at("folder")}));
}

// A dictionary JSON cannot carry (here a date) leaves the file as it was.
TEST_F(FileHelper, DictionaryIsWrittenAsCompactJsonOrNotAtAll) {
    writeFile(at("settings.json"), std::string(200, ' ') + "trailing garbage");
    TVKFileHelper::writeDictionary(
        {{"name", "Zoë"}, {"count", 3}, {"flags", Array{true, 1.5, "a/b"}}}, at("settings.json"));
    EXPECT_EQ(readFile(at("settings.json")),
              R"({"name":"Zoë","count":3,"flags":[true,1.5,"a/b"]})");

    writeFile(at("settings.json"), "{}");
    TVKFileHelper::writeDictionary({{"when", Date{}}}, at("settings.json"));
    EXPECT_EQ(readFile(at("settings.json")), "{}");
    Lines lines = test.consoleLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with(kFailed + "write dictionary to file: " + at("settings.json") +
                                     " \n "));
}

}  // namespace
}  // namespace tarvik
