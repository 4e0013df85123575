#include "Helpers/TVKFileHelper.h"
#include "Helpers/Tarvik_ZipFile.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/Files.h"
#include "support/ReadOnlyFolder.h"
#include "support/ZipArchiveChecks.h"

#include <tarvik/Tarvik.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

namespace tarvik {
namespace {

using testing::TestRuntime;
using testsupport::expectUnzipTestPasses;
using testsupport::PythonZipEntry;
using testsupport::ReadOnlyFolder;
using testsupport::readZipWithPython;
using testsupport::writeFile;

Data randomBytes(size_t length) {
    std::mt19937 generator(7);
    Data bytes(length);
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(generator());
    }
    return bytes;
}

// Text whose pattern does not repeat every 1024 bytes, so a chunk written twice, skipped or
// out of order shows up in the archive's contents.
Data patternedText(size_t length) {
    Data bytes(length);
    for (size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<std::uint8_t>('a' + (i * 7 + i / 1021) % 26);
    }
    return bytes;
}

// Zips `contents` and checks the archive with unzip, Python and the SDK's own reader.
void expectZipsIntoOneEntry(TestRuntime& test, const std::string& sourceName,
                            const Data& contents) {
    std::string source = test.root() + "/" + sourceName;
    std::string archive = test.root() + "/out.zip";
    writeFile(source, contents);
    ASSERT_TRUE(TVKFileHelper::zipFileAtPath(source, archive));

    expectUnzipTestPasses(archive);
    std::vector<PythonZipEntry> seen = readZipWithPython(archive);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].name, sourceName);
    EXPECT_EQ(seen[0].method, 8);
    EXPECT_EQ(seen[0].contents, contents);

    Tarvik_ZipFile reader(archive, Tarvik_ZipFileModeUnzip);
    Tarvik_FileInZipInfo info = reader.listFileInZipInfos().at(0);
    EXPECT_EQ(info.level(), 9);
    EXPECT_EQ(info.length(), contents.size());
    reader.close();
}

TEST(FileHelperZip, EmptySourceGivesOneEmptyEntry) {
    TestRuntime test;
    expectZipsIntoOneEntry(test, "empty.log", {});
}

TEST(FileHelperZip, SourceOfWholeChunksIsCopiedExactly) {
    TestRuntime test;
    expectZipsIntoOneEntry(test, "chunks.log", patternedText(1024 * 5));
}

TEST(FileHelperZip, SourceEndingInAPartialChunkIsCopiedExactly) {
    TestRuntime test;
    expectZipsIntoOneEntry(test, "partial.log", patternedText(1024 * 5 + 1));
}

TEST(FileHelperZip, OneMebibyteOfRandomBytesIsCopiedExactly) {
    TestRuntime test;
    expectZipsIntoOneEntry(test, "random.bin", randomBytes(1 << 20));
}

TEST(FileHelperZip, EntryIsNamedAfterTheSourceFileAlone) {
    TestRuntime test;
    std::string folder = test.root() + "/logs and \xC3\xA9tats";
    std::filesystem::create_directories(folder);
    std::string source = folder + "/journal du jour.txt";
    writeFile(source, patternedText(100));
    std::string archive = folder + "/temp.zip";
    ASSERT_TRUE(TVKFileHelper::zipFileAtPath(source, archive));
    std::vector<PythonZipEntry> seen = readZipWithPython(archive);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].name, "journal du jour.txt");
}

TEST(FileHelperZip, ExistingArchiveIsReplaced) {
    TestRuntime test;
    std::string archive = test.root() + "/temp.zip";
    writeFile(test.root() + "/first.txt", patternedText(10));
    writeFile(test.root() + "/second.txt", patternedText(20));
    ASSERT_TRUE(TVKFileHelper::zipFileAtPath(test.root() + "/first.txt", archive));
    ASSERT_TRUE(TVKFileHelper::zipFileAtPath(test.root() + "/second.txt", archive));
    std::vector<PythonZipEntry> seen = readZipWithPython(archive);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].name, "second.txt");
}

TEST(FileHelperZip, MissingSourceGivesNoAndReportsItInDebugMode) {
    TestRuntime test;
    std::string source = test.root() + "/missing.txt";
    std::string archive = test.root() + "/temp.zip";
    EXPECT_FALSE(TVKFileHelper::zipFileAtPath(source, archive));
    EXPECT_TRUE(test.consoleLines().empty());

    Tarvik::sharedInstance().setDebug(true);
    EXPECT_FALSE(TVKFileHelper::zipFileAtPath(source, archive));
    EXPECT_EQ(
        test.consoleLines(),
        std::vector<std::string>{"Tarvik Error -- Nil fileReader, FAILED to zip file: " + source});
    EXPECT_FALSE(std::filesystem::exists(archive));
}

// The helper reports a missing source by its result, but an archive it cannot write throws:
// the zip layer's exception reaches the caller.
TEST(FileHelperZip, ArchiveInAReadOnlyFolderThrows) {
    TestRuntime test;
    std::string source = test.root() + "/log.txt";
    writeFile(source, patternedText(100));
    ReadOnlyFolder folder(test.root() + "/locked");
    if (!folder.refusesNewFiles()) {
        GTEST_SKIP() << "this process can write into read-only folders anyway";
    }
    std::string archive = folder.path() + "/temp.zip";
    try {
        TVKFileHelper::zipFileAtPath(source, archive);
        ADD_FAILURE() << "no exception";
    } catch (const Tarvik_ZipException& exception) {
        EXPECT_EQ(exception.reason(), "Can't open '" + archive + "'");
    }
}

}  // namespace
}  // namespace tarvik
