#include "Helpers/Tarvik_ZipFile.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/Files.h"
#include "support/ReadOnlyFolder.h"
#include "support/ZipArchiveChecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>
#include <random>

#include <sys/mman.h>
#include <zlib.h>

namespace tarvik {
namespace {

using testing::TestRuntime;
using testsupport::expectUnzipTestPasses;
using testsupport::extractWithUnzip;
using testsupport::listNamesWithUnzip;
using testsupport::PythonZipEntry;
using testsupport::readFileData;
using testsupport::ReadOnlyFolder;
using testsupport::readZipWithPython;
using testsupport::runCommand;
using testsupport::runPython;
using testsupport::shellQuoted;
using testsupport::writeFile;

// "é" precomposed (U+00E9) and decomposed (e + U+0301).
const std::string kCafeComposed = "caf\xC3\xA9.txt";
const std::string kCafeDecomposed = "cafe\xCC\x81.txt";

Data bytesOf(std::string_view text) {
    return Data(text.begin(), text.end());
}

Data randomBytes(size_t length, unsigned seed) {
    std::mt19937 generator(seed);
    Data bytes(length);
    for (auto& byte : bytes) {
        byte = static_cast<std::uint8_t>(generator());
    }
    return bytes;
}

// Text that deflates well, so stored and deflated entries differ in size.
Data repetitiveText(size_t lines) {
    std::string text;
    for (size_t i = 0; i < lines; ++i) {
        text += "line " + std::to_string(i) + ": the reporter attached its log\n";
    }
    return bytesOf(text);
}

std::string textOf(const Data& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

void runInFolder(const std::string& folder, const std::string& command) {
    testsupport::CommandResult result = runCommand("cd " + shellQuoted(folder) + " && " + command);
    ASSERT_EQ(result.exitCode, 0) << command << "\n" << result.output;
}

struct EntryToWrite {
    std::string name;
    Data contents;
    std::int32_t level;
};

std::uint32_t crcOf(const Data& bytes) {
    return static_cast<std::uint32_t>(crc32_z(0, bytes.data(), bytes.size()));
}

// Writes in several pieces, so that consecutive writes into one entry are covered.
void writeInPieces(Tarvik_ZipWriteStream& stream, const Data& contents) {
    for (size_t offset = 0; offset < contents.size(); offset += 1000) {
        size_t length = std::min<size_t>(1000, contents.size() - offset);
        stream.writeData(std::span(contents).subspan(offset, length));
    }
    stream.finishedWriting();
}

void writeArchive(const std::string& path, const std::vector<EntryToWrite>& entries,
                  std::int32_t mode = Tarvik_ZipFileModeCreate) {
    Tarvik_ZipFile archive(path, mode);
    for (const EntryToWrite& entry : entries) {
        writeInPieces(*archive.writeFileInZipWithName(entry.name, entry.level), entry.contents);
    }
    archive.close();
}

void writeEncryptedArchive(const std::string& path, const std::vector<EntryToWrite>& entries,
                           const std::string& password) {
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeCreate);
    for (const EntryToWrite& entry : entries) {
        writeInPieces(
            *archive.writeFileInZipWithName(entry.name, Date(std::chrono::seconds(1767323046)),
                                            entry.level, password, crcOf(entry.contents)),
            entry.contents);
    }
    archive.close();
}

// Reads the whole current entry in pieces of an odd size, then closes it.
Data readToEnd(Tarvik_ZipReadStream& stream) {
    Data contents;
    for (Data piece = stream.readDataOfLength(777); !piece.empty();
         piece = stream.readDataOfLength(777)) {
        contents.insert(contents.end(), piece.begin(), piece.end());
    }
    stream.finishedReading();
    return contents;
}

Data readEntry(Tarvik_ZipFile& archive, const std::string& name) {
    EXPECT_TRUE(archive.locateFileInZip(name)) << name;
    return readToEnd(*archive.readCurrentFileInZip());
}

Data readEntry(Tarvik_ZipFile& archive, const std::string& name, const std::string& password) {
    EXPECT_TRUE(archive.locateFileInZip(name)) << name;
    return readToEnd(*archive.readCurrentFileInZipWithPassword(password));
}

// Runs `operation`, which must throw a Tarvik_ZipException with exactly `reason`.
void expectZipException(const std::function<void()>& operation, const std::string& reason,
                        std::optional<std::int64_t> error = std::nullopt) {
    try {
        operation();
        ADD_FAILURE() << "no exception, expected: " << reason;
    } catch (const Tarvik_ZipException& exception) {
        EXPECT_EQ(exception.reason(), reason);
        EXPECT_EQ(exception.name(), "ZipException");
        if (error) {
            EXPECT_EQ(exception.error(), *error);
        }
    }
}

// Sets the local time zone for the guard's lifetime. POSIX rules need no time zone database.
class LocalTimeZone {
  public:
    explicit LocalTimeZone(const char* rule) {
        if (const char* current = std::getenv("TZ")) {
            saved_ = current;
        }
        ::setenv("TZ", rule, 1);
        ::tzset();
    }
    ~LocalTimeZone() {
        if (saved_) {
            ::setenv("TZ", saved_->c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }

  private:
    std::optional<std::string> saved_;
};

Date utc(std::int64_t secondsSinceEpoch) {
    return Date(std::chrono::seconds(secondsSinceEpoch));
}

// ----------------------------------------------------------------------------------------------

TEST(ZipFileWrite, StoredAndDeflatedEntriesReadBackInPythonAndHere) {
    TestRuntime test;
    std::string path = test.root() + "/levels.zip";
    std::vector<EntryToWrite> written = {
        {"stored.bin", randomBytes(3000, 1), 0},
        {"fastest.txt", repetitiveText(200), 1},
        {"default.txt", repetitiveText(200), -1},
        {"best.txt", repetitiveText(200), 9},
        {"empty", {}, 9},
        {"r\xC3\xA9sum\xC3\xA9.txt", bytesOf("accents"), 5},
    };
    writeArchive(path, written);

    expectUnzipTestPasses(path);
    std::vector<PythonZipEntry> seen = readZipWithPython(path);
    ASSERT_EQ(seen.size(), written.size());
    for (size_t i = 0; i < written.size(); ++i) {
        SCOPED_TRACE(written[i].name);
        EXPECT_EQ(seen[i].name, written[i].name);
        EXPECT_EQ(seen[i].method, written[i].level == 0 ? 0 : 8);
        EXPECT_EQ(seen[i].contents, written[i].contents);
    }
    EXPECT_EQ(seen[0].size, 3000u);               // stored: no compression
    EXPECT_LT(seen[3].size, seen[3].length / 4);  // deflated text shrinks

    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    std::vector<Tarvik_FileInZipInfo> infos = archive.listFileInZipInfos();
    ASSERT_EQ(infos.size(), written.size());
    // Level 5 leaves no hint in the header, so it reads back as the default.
    const std::vector<std::int32_t> levels = {0, 1, -1, 9, 9, -1};
    for (size_t i = 0; i < infos.size(); ++i) {
        SCOPED_TRACE(written[i].name);
        EXPECT_EQ(infos[i].length(), seen[i].length);
        EXPECT_EQ(infos[i].size(), seen[i].size);
        EXPECT_EQ(infos[i].crc32(), seen[i].crc);
        EXPECT_EQ(infos[i].level(), levels[i]);
        EXPECT_FALSE(infos[i].crypted());
        EXPECT_EQ(readEntry(archive, written[i].name), written[i].contents);
    }
    // Listed and indexed names are decomposed.
    EXPECT_EQ(infos[5].name(), "re\xCC\x81sume\xCC\x81.txt");
    EXPECT_EQ(archive.contents().size(), written.size());
    EXPECT_EQ(archive.contents().count("re\xCC\x81sume\xCC\x81.txt"), 1u);
    archive.close();
}

TEST(ZipFileWrite, EntryDatesAreLocalCalendarTime) {
    TestRuntime test;
    LocalTimeZone eastern("EET-2EEST,M3.5.0/3,M10.5.0/4");   // UTC+2, summer UTC+3
    test.platform().virtualClock().setNow(utc(1784110830));  // 2026-07-15 10:20:30 UTC
    Date winter = utc(1767323046);                           // 2026-01-02 03:04:06 UTC
    std::string path = test.root() + "/dates.zip";
    {
        Tarvik_ZipFile archive(path, Tarvik_ZipFileModeCreate);
        archive.writeFileInZipWithName("now.txt", 9)->finishedWriting();
        archive.writeFileInZipWithName("winter.txt", winter, 0)->finishedWriting();
        archive.close();
    }

    std::vector<PythonZipEntry> seen = readZipWithPython(path);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].date, (std::vector<int>{2026, 7, 15, 13, 20, 30}));
    EXPECT_EQ(seen[1].date, (std::vector<int>{2026, 1, 2, 5, 4, 6}));

    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    std::vector<Tarvik_FileInZipInfo> infos = archive.listFileInZipInfos();
    ASSERT_EQ(infos.size(), 2u);
    EXPECT_EQ(infos[0].date(), utc(1784110830));
    EXPECT_EQ(infos[1].date(), winter);
    archive.close();
}

TEST(ZipFileWrite, AppendModeAddsToAnExistingArchive) {
    TestRuntime test;
    std::string path = test.root() + "/grown.zip";
    writeArchive(path, {{"first.txt", repetitiveText(50), 9}});
    writeArchive(path, {{"second.bin", randomBytes(5000, 2), 0}}, Tarvik_ZipFileModeAppend);

    expectUnzipTestPasses(path);
    std::vector<PythonZipEntry> seen = readZipWithPython(path);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].contents, repetitiveText(50));
    EXPECT_EQ(seen[1].contents, randomBytes(5000, 2));

    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    EXPECT_EQ(archive.numFilesInZip(), 2u);
    EXPECT_EQ(readEntry(archive, "second.bin"), randomBytes(5000, 2));
    EXPECT_EQ(readEntry(archive, "first.txt"), repetitiveText(50));
    archive.close();
}

// The length of a view above 4 GiB is cut to its low 32 bits. The view is backed by address
// space that is reserved but never touched beyond its first page, so no memory is used.
TEST(ZipFileWrite, WriteDataPassesTheLow32BitsOfItsLength) {
    TestRuntime test;
    const size_t length = (std::uint64_t{1} << 32) + 5;
    void* reserved = ::mmap(nullptr, length, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (reserved == MAP_FAILED) {
        GTEST_SKIP() << "cannot reserve 4 GiB of address space here";
    }
    auto* bytes = static_cast<std::uint8_t*>(reserved);
    std::copy_n("hello", 5, bytes);
    std::string path = test.root() + "/cut.zip";
    {
        Tarvik_ZipFile archive(path, Tarvik_ZipFileModeCreate);
        auto stream = archive.writeFileInZipWithName("cut.txt", 0);
        stream->writeData(std::span<const std::uint8_t>(bytes, length));
        stream->finishedWriting();
        archive.close();
    }
    ::munmap(reserved, length);

    std::vector<PythonZipEntry> seen = readZipWithPython(path);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(textOf(seen[0].contents), "hello");
}

// Names that are not plain ASCII carry the UTF-8 flag, so that other tools decode them as UTF-8
// rather than as code page 437. Bytes that are not UTF-8 at all have no encoding to declare.
TEST(ZipFileWrite, NonAsciiNamesAreFlaggedAsUtf8) {
    TestRuntime test;
    std::string path = test.root() + "/names.zip";
    const std::string notes = "Notes \u00FCn\u00EFcode.txt";  // UTF-8, as the compiler encodes it
    const std::string sharpS = "gro\u00DF.txt";
    {
        Tarvik_ZipFile archive(path, Tarvik_ZipFileModeCreate);
        writeInPieces(*archive.writeFileInZipWithName(notes, 9), bytesOf("notes"));
        writeInPieces(*archive.writeFileInZipWithName(kCafeDecomposed, 0), bytesOf("cafe"));
        writeInPieces(*archive.writeFileInZipWithName("plain.txt", 9), bytesOf("plain"));
        writeInPieces(
            *archive.writeFileInZipWithName(sharpS, utc(0), 9, "pw", crcOf(bytesOf("locked"))),
            bytesOf("locked"));
        writeInPieces(*archive.writeFileInZipWithName("latin1 \xE9.bin", 0), bytesOf("bytes"));
        archive.close();
    }

    const std::vector<std::string> names = {notes, kCafeDecomposed, "plain.txt", sharpS};
    std::vector<PythonZipEntry> seen = readZipWithPython(path, "pw");
    ASSERT_EQ(seen.size(), names.size() + 1);
    for (size_t i = 0; i < names.size(); ++i) {
        SCOPED_TRACE(names[i]);
        EXPECT_EQ(seen[i].shownName, names[i]);
        EXPECT_EQ((seen[i].flags & 0x800) != 0, names[i] != "plain.txt");
    }
    EXPECT_EQ(seen[3].flags & 1, 1u);
    EXPECT_EQ(textOf(seen[3].contents), "locked");
    EXPECT_EQ(seen[4].name, "latin1 \xE9.bin");
    EXPECT_EQ(seen[4].flags & 0x800, 0u);

    std::vector<std::string> listed = listNamesWithUnzip(path);
    ASSERT_EQ(listed.size(), names.size() + 1);
    EXPECT_EQ(std::vector<std::string>(listed.begin(), listed.begin() + 4), names);

    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    EXPECT_EQ(textOf(readEntry(archive, notes)), "notes");
    EXPECT_EQ(textOf(readEntry(archive, kCafeComposed)), "cafe");
    EXPECT_EQ(textOf(readEntry(archive, sharpS, "pw")), "locked");
    archive.close();
}

// ----------------------------------------------------------------------------------------------

TEST(ZipFileRead, ListsAndReadsAnArchiveMadeByPython) {
    TestRuntime test;
    std::string path = test.root() + "/python.zip";
    testsupport::CommandResult made = runPython(R"(
import sys, zipfile
with zipfile.ZipFile(sys.argv[1], 'w') as archive:
    archive.writestr('stored.txt', b'kept as it is', compress_type=zipfile.ZIP_STORED)
    archive.writestr('deflated.txt', b'squeezed ' * 500, compress_type=zipfile.ZIP_DEFLATED)
    archive.writestr('caf\u00e9.txt', b'composed', compress_type=zipfile.ZIP_STORED)
    archive.writestr('folder/', b'')
)",
                                                shellQuoted(path));
    ASSERT_EQ(made.exitCode, 0) << made.output;
    std::vector<PythonZipEntry> seen = readZipWithPython(path);
    ASSERT_EQ(seen.size(), 4u);

    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    EXPECT_EQ(archive.numFilesInZip(), 4u);
    std::vector<Tarvik_FileInZipInfo> infos = archive.listFileInZipInfos();
    ASSERT_EQ(infos.size(), 4u);
    const std::vector<std::string> names = {"stored.txt", "deflated.txt", kCafeDecomposed,
                                            "folder/"};
    // Python leaves the level bits clear, so its deflated entries read as the default level.
    ASSERT_EQ(seen[1].flags & 6, 0u);
    const std::vector<std::int32_t> levels = {0, -1, 0, 0};
    for (size_t i = 0; i < infos.size(); ++i) {
        SCOPED_TRACE(names[i]);
        EXPECT_EQ(infos[i].name(), names[i]);
        EXPECT_EQ(infos[i].length(), seen[i].length);
        EXPECT_EQ(infos[i].size(), seen[i].size);
        EXPECT_EQ(infos[i].crc32(), seen[i].crc);
        EXPECT_EQ(infos[i].level(), levels[i]);
        EXPECT_FALSE(infos[i].crypted());
        EXPECT_EQ(readEntry(archive, names[i]), seen[i].contents);
    }
    archive.close();
}

TEST(ZipFileRead, ListsAndReadsAnArchiveMadeByTheZipCommand) {
    TestRuntime test;
    std::string folder = test.root();
    writeFile(folder + "/stored.txt", repetitiveText(40));
    writeFile(folder + "/fastest.txt", repetitiveText(40));
    writeFile(folder + "/best.txt", repetitiveText(40));
    writeFile(folder + "/normal.txt", repetitiveText(40));
    writeFile(folder + "/locked.txt", repetitiveText(40));
    runInFolder(folder,
                "zip -q -0 made.zip stored.txt && zip -q -1 made.zip fastest.txt && "
                "zip -q -9 made.zip best.txt && zip -q made.zip normal.txt && "
                "zip -q -9 -P secret made.zip locked.txt");
    std::string path = folder + "/made.zip";
    std::vector<PythonZipEntry> seen = readZipWithPython(path, "secret");
    ASSERT_EQ(seen.size(), 5u);
    ASSERT_EQ(seen[4].contents, repetitiveText(40));  // the password is right

    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    std::vector<Tarvik_FileInZipInfo> infos = archive.listFileInZipInfos();
    ASSERT_EQ(infos.size(), 5u);
    const std::vector<std::string> names = {"stored.txt", "fastest.txt", "best.txt", "normal.txt",
                                            "locked.txt"};
    const std::vector<std::int32_t> levels = {0, 1, 9, -1, 9};
    for (size_t i = 0; i < infos.size(); ++i) {
        SCOPED_TRACE(names[i]);
        EXPECT_EQ(infos[i].name(), names[i]);
        EXPECT_EQ(infos[i].length(), seen[i].length);
        EXPECT_EQ(infos[i].size(), seen[i].size);
        EXPECT_EQ(infos[i].crc32(), seen[i].crc);
        EXPECT_EQ(infos[i].level(), levels[i]);
        EXPECT_EQ(infos[i].crypted(), names[i] == "locked.txt");
        EXPECT_EQ(infos[i].crypted() ? readEntry(archive, names[i], "secret")
                                     : readEntry(archive, names[i]),
                  repetitiveText(40));
    }
    archive.close();
}

TEST(ZipFileRead, LocatesComposedAndDecomposedNamesEitherWay) {
    TestRuntime test;
    // The zip command stores the composed name as the file system spells it; Python stores the
    // decomposed one.
    writeFile(test.root() + "/" + kCafeComposed, bytesOf("composed"));
    runInFolder(test.root(), "zip -q composed.zip " + shellQuoted(kCafeComposed));
    testsupport::CommandResult made = runPython(R"(
import sys, zipfile
with zipfile.ZipFile(sys.argv[1], 'w') as archive:
    archive.writestr('cafe\u0301.txt', b'decomposed')
)",
                                                shellQuoted(test.root() + "/decomposed.zip"));
    ASSERT_EQ(made.exitCode, 0) << made.output;
    ASSERT_EQ(readZipWithPython(test.root() + "/composed.zip").at(0).name, kCafeComposed);
    ASSERT_EQ(readZipWithPython(test.root() + "/decomposed.zip").at(0).name, kCafeDecomposed);

    for (const auto& [file, contents] :
         {std::pair{"composed.zip", "composed"}, std::pair{"decomposed.zip", "decomposed"}}) {
        SCOPED_TRACE(file);
        Tarvik_ZipFile archive(test.root() + "/" + file, Tarvik_ZipFileModeUnzip);
        EXPECT_EQ(textOf(readEntry(archive, kCafeComposed)), contents);
        EXPECT_EQ(textOf(readEntry(archive, kCafeDecomposed)), contents);
        EXPECT_FALSE(archive.locateFileInZip("cafe.txt"));
        archive.close();
    }
}

// minizip looks for the archive's end record everywhere but at offset 0, which is exactly where
// it is in an archive with no entries. Such an archive is valid, yet cannot be opened for
// reading; it can still be appended to.
TEST(ZipFileRead, ArchiveWithoutEntriesCanOnlyBeAppendedTo) {
    TestRuntime test;
    std::string path = test.root() + "/empty.zip";
    Tarvik_ZipFile(path, Tarvik_ZipFileModeCreate).close();
    EXPECT_TRUE(readZipWithPython(path).empty());
    expectZipException([&] { Tarvik_ZipFile(path, Tarvik_ZipFileModeUnzip); },
                       "Can't open '" + path + "'", 0);

    writeArchive(path, {{"added.txt", bytesOf("added"), 9}}, Tarvik_ZipFileModeAppend);
    expectUnzipTestPasses(path);
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    EXPECT_EQ(textOf(readEntry(archive, "added.txt")), "added");
    archive.close();
}

// An archive with no entries behind a stub, as self-extracting archives are laid out, is one
// that minizip opens.
std::string emptyArchiveBehindAStub(TestRuntime& test) {
    std::string path = test.root() + "/stubbed.zip";
    testsupport::CommandResult made = runPython(R"(
import io, sys, zipfile
empty = io.BytesIO()
zipfile.ZipFile(empty, 'w').close()
open(sys.argv[1], 'wb').write(b'#!stub\n' + empty.getvalue())
)",
                                                shellQuoted(path));
    EXPECT_EQ(made.exitCode, 0) << made.output;
    EXPECT_TRUE(readZipWithPython(path).empty());
    return path;
}

TEST(ZipFileRead, ArchiveWithoutEntriesListsNothing) {
    TestRuntime test;
    std::string path = emptyArchiveBehindAStub(test);
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    EXPECT_TRUE(archive.contents().empty());
    EXPECT_EQ(archive.numFilesInZip(), 0u);
    EXPECT_TRUE(archive.listFileInZipInfos().empty());
    EXPECT_FALSE(archive.locateFileInZip("anything"));
    EXPECT_FALSE(archive.goToNextFileInZip());
    expectZipException([&] { archive.currentFileInZipInfo(); },
                       "Error in getting current file info in '" + path + "'");
    expectZipException([&] { archive.readCurrentFileInZip(); },
                       "Error in opening current file in '" + path + "'");
    archive.close();
}

TEST(ZipFileRead, GoingToTheFirstOfNoEntriesOnlyWritesToTheConsole) {
    TestRuntime test;
    std::string path = emptyArchiveBehindAStub(test);
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    EXPECT_NO_THROW(archive.goToFirstFileInZip());
    EXPECT_EQ(test.consoleLines(),
              std::vector<std::string>{"Error in going to first file in zip in '" + path + "'"});
    archive.close();
}

// ----------------------------------------------------------------------------------------------

// Password entries are checked against the common tools, which implement the traditional cipher
// independently: entries written here must open in them, theirs must open here.

TEST(ZipFilePassword, EntriesWrittenHereOpenInUnzipPythonAndHere) {
    TestRuntime test;
    std::string path = test.root() + "/locked.zip";
    const std::string password = "s3cret p\xC3\xA4ss";
    const std::vector<EntryToWrite> written = {
        {"empty-stored", {}, 0},
        {"empty-deflated", {}, 9},
        {"stored.bin", randomBytes(200 * 1024, 3), 0},
        {"best.txt", repetitiveText(4500), 9},
        {"fastest.bin", randomBytes(200 * 1024, 4), 1},
        {"default.txt", repetitiveText(100), -1},
    };
    writeEncryptedArchive(path, written, password);

    std::vector<PythonZipEntry> seen = readZipWithPython(path, password);
    ASSERT_EQ(seen.size(), written.size());
    for (size_t i = 0; i < written.size(); ++i) {
        SCOPED_TRACE(written[i].name);
        EXPECT_EQ(seen[i].flags & 1, 1u);
        EXPECT_EQ(seen[i].method, written[i].level == 0 ? 0 : 8);
        EXPECT_EQ(seen[i].crc, crcOf(written[i].contents));
        EXPECT_EQ(seen[i].contents, written[i].contents);
    }
    EXPECT_EQ(seen[0].size, 12u);  // the encryption header alone
    EXPECT_EQ(seen[2].size, 200u * 1024 + 12);
    EXPECT_LT(seen[3].size, seen[3].length / 4);

    expectUnzipTestPasses(path, password);
    std::string extracted = test.root() + "/extracted";
    extractWithUnzip(path, extracted, password);
    for (const EntryToWrite& entry : written) {
        EXPECT_EQ(readFileData(extracted + "/" + entry.name), entry.contents) << entry.name;
    }

    // Encrypted, the stored data no longer appears in the file.
    Data file = readFileData(path);
    const Data& stored = written[2].contents;
    EXPECT_EQ(std::search(file.begin(), file.end(), stored.begin() + 1000, stored.begin() + 1064),
              file.end());

    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    std::vector<Tarvik_FileInZipInfo> infos = archive.listFileInZipInfos();
    ASSERT_EQ(infos.size(), written.size());
    const std::vector<std::int32_t> levels = {0, 9, 0, 9, 1, -1};
    for (size_t i = 0; i < infos.size(); ++i) {
        SCOPED_TRACE(written[i].name);
        EXPECT_TRUE(infos[i].crypted());
        EXPECT_EQ(infos[i].level(), levels[i]);
        EXPECT_EQ(infos[i].length(), written[i].contents.size());
        EXPECT_EQ(readEntry(archive, written[i].name, password), written[i].contents);
    }
    archive.close();
}

// The zip command sets the data-descriptor flag on password entries, so their headers are
// checked against the entry's time rather than its CRC.
TEST(ZipFilePassword, ReadsEntriesOfTheZipCommand) {
    TestRuntime test;
    writeFile(test.root() + "/text.txt", repetitiveText(40));
    writeFile(test.root() + "/random.bin", randomBytes(200 * 1024, 5));
    runInFolder(test.root(),
                "zip -q -0 -P secret stored.zip text.txt random.bin && "
                "zip -q -9 -P secret deflated.zip text.txt random.bin && "
                "zip -q plain.zip text.txt");
    for (const char* file : {"stored.zip", "deflated.zip"}) {
        SCOPED_TRACE(file);
        std::string path = test.root() + "/" + file;
        std::vector<PythonZipEntry> seen = readZipWithPython(path, "secret");
        ASSERT_EQ(seen.size(), 2u);
        for (const PythonZipEntry& entry : seen) {
            EXPECT_EQ(entry.flags & 9, 9u);  // encrypted, data descriptor
        }
        EXPECT_EQ(seen[0].method, file == std::string("stored.zip") ? 0 : 8);

        Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
        EXPECT_EQ(readEntry(archive, "text.txt", "secret"), repetitiveText(40));
        EXPECT_EQ(readEntry(archive, "random.bin", "secret"), randomBytes(200 * 1024, 5));
        archive.close();
    }

    // An entry without encryption needs no password, and any given is ignored.
    Tarvik_ZipFile archive(test.root() + "/plain.zip", Tarvik_ZipFileModeUnzip);
    EXPECT_EQ(readEntry(archive, "text.txt", "anything"), repetitiveText(40));
    archive.close();
}

// The header's check byte refuses 255 in 256 wrong passwords on opening. The others decrypt
// to garbage, which must fail on reading (it does not inflate) or on finishing (its CRC does not
// match): tries wrong passwords until both kinds have turned up.
void expectWrongPasswordsFail(Tarvik_ZipFile& archive, const std::string& name) {
    bool refused = false;
    bool slippedThrough = false;
    for (int i = 0; i < 20000 && !(refused && slippedThrough); ++i) {
        std::string password = "wrong " + std::to_string(i);
        ASSERT_TRUE(archive.locateFileInZip(name));
        std::unique_ptr<Tarvik_ZipReadStream> stream;
        try {
            stream = archive.readCurrentFileInZipWithPassword(password);
        } catch (const Tarvik_ZipException& exception) {
            EXPECT_EQ(exception.reason(),
                      "Error in opening current file in '" + archive.fileName() + "'");
            EXPECT_EQ(exception.error(), Tarvik_ZipErrorWrongPassword);
            refused = true;
            continue;
        }
        slippedThrough = true;
        try {
            Data garbage = readToEnd(*stream);
            ADD_FAILURE() << "'" << password << "' read " << garbage.size() << " bytes";
        } catch (const Tarvik_ZipException& exception) {
            EXPECT_THAT(exception.reason(),
                        ::testing::AnyOf("Error in reading '" + name + "' in the zipfile",
                                         "Error in closing '" + name + "' in the zipfile"));
            EXPECT_NE(exception.error(), 0);
        }
    }
    EXPECT_TRUE(refused);
    EXPECT_TRUE(slippedThrough);
}

TEST(ZipFilePassword, WrongPasswordsAreRefusedOrFailTheDataChecks) {
    TestRuntime test;
    // Entries written here are checked against their CRC...
    std::string ours = test.root() + "/ours.zip";
    writeEncryptedArchive(
        ours, {{"stored.txt", repetitiveText(40), 0}, {"deflated.txt", repetitiveText(40), 9}},
        "secret");
    // ...those of the zip command against their time.
    writeFile(test.root() + "/text.txt", repetitiveText(40));
    runInFolder(test.root(), "zip -q -9 -P secret theirs.zip text.txt");

    Tarvik_ZipFile archive(ours, Tarvik_ZipFileModeUnzip);
    expectWrongPasswordsFail(archive, "stored.txt");
    expectWrongPasswordsFail(archive, "deflated.txt");
    EXPECT_EQ(readEntry(archive, "deflated.txt", "secret"), repetitiveText(40));
    archive.close();

    Tarvik_ZipFile theirs(test.root() + "/theirs.zip", Tarvik_ZipFileModeUnzip);
    expectWrongPasswordsFail(theirs, "text.txt");
    theirs.close();
}

// Read without its password, an encrypted entry gives its encrypted bytes, which fail the CRC
// check when the entry is finished.
TEST(ZipFilePassword, WithoutThePasswordTheDataFailsItsCrcCheck) {
    TestRuntime test;
    std::string path = test.root() + "/locked.zip";
    writeEncryptedArchive(path, {{"stored.txt", repetitiveText(40), 0}}, "secret");
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    ASSERT_TRUE(archive.locateFileInZip("stored.txt"));
    auto stream = archive.readCurrentFileInZip();
    // minizip gives as many bytes as the entry's length: the header and most of the data.
    Data encrypted = stream->readDataOfLength(100000);
    EXPECT_EQ(encrypted.size(), repetitiveText(40).size());
    EXPECT_NE(encrypted, repetitiveText(40));
    expectZipException([&] { stream->finishedReading(); },
                       "Error in closing 'stored.txt' in the zipfile", -105);
    archive.close();
}

// The header's check bytes are made from the CRC given on opening; data with another CRC would
// make an entry that no password opens cleanly, and finishing it says so.
TEST(ZipFilePassword, DataThatDoesNotMatchTheGivenCrcFailsOnFinishing) {
    TestRuntime test;
    std::string path = test.root() + "/mismatch.zip";
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeCreate);
    auto stream = archive.writeFileInZipWithName("wrong.txt", utc(0), 9, "secret",
                                                 crcOf(bytesOf("expected")));
    stream->writeData(bytesOf("written"));
    expectZipException([&] { stream->finishedWriting(); },
                       "Error in closing 'wrong.txt' in the zipfile", -105);
    // The entry was closed all the same, and the archive stays well formed.
    archive.writeFileInZipWithName("next.txt", 9)->finishedWriting();
    archive.close();
    std::vector<PythonZipEntry> seen = readZipWithPython(path);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].crc, crcOf(bytesOf("expected")));
}

// ----------------------------------------------------------------------------------------------

TEST(ZipFileMisuse, UnknownModeThrows) {
    TestRuntime test;
    for (std::int32_t mode : {3, -1}) {
        expectZipException([&] { Tarvik_ZipFile(test.root() + "/a.zip", mode); },
                           "Unknown mode " + std::to_string(mode), 0);
    }
}

TEST(ZipFileMisuse, WritingInUnzipModeThrows) {
    TestRuntime test;
    std::string path = test.root() + "/a.zip";
    writeArchive(path, {{"a.txt", bytesOf("a"), 9}});
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    const std::string reason = "Operation not permitted with Unzip mode";
    expectZipException([&] { archive.writeFileInZipWithName("b.txt", 9); }, reason, 0);
    expectZipException([&] { archive.writeFileInZipWithName("b.txt", utc(0), 9); }, reason, 0);
    expectZipException([&] { archive.writeFileInZipWithName("b.txt", utc(0), 9, "pw", 0); }, reason,
                       0);
    archive.close();
}

TEST(ZipFileMisuse, ReadingInCreateOrAppendModeThrows) {
    TestRuntime test;
    std::string path = test.root() + "/a.zip";
    writeArchive(path, {{"a.txt", bytesOf("a"), 9}});
    const std::string reason = "Operation not permitted without Unzip mode";
    for (std::int32_t mode : {Tarvik_ZipFileModeAppend, Tarvik_ZipFileModeCreate}) {
        SCOPED_TRACE(mode);
        Tarvik_ZipFile archive(path, mode);
        expectZipException([&] { archive.numFilesInZip(); }, reason, 0);
        expectZipException([&] { archive.listFileInZipInfos(); }, reason, 0);
        expectZipException([&] { archive.goToFirstFileInZip(); }, reason, 0);
        expectZipException([&] { archive.goToNextFileInZip(); }, reason, 0);
        expectZipException([&] { archive.locateFileInZip("a.txt"); }, reason, 0);
        expectZipException([&] { archive.currentFileInZipInfo(); }, reason, 0);
        expectZipException([&] { archive.readCurrentFileInZip(); }, reason, 0);
        expectZipException([&] { archive.readCurrentFileInZipWithPassword("pw"); }, reason, 0);
        archive.close();
    }
}

TEST(ZipFileMisuse, WhatIsNotAnArchiveCannotBeOpened) {
    TestRuntime test;
    std::string text = test.root() + "/notes.zip";
    writeFile(text, bytesOf("just some notes, not an archive\n"));
    std::string missing = test.root() + "/missing.zip";
    expectZipException([&] { Tarvik_ZipFile(text, Tarvik_ZipFileModeUnzip); },
                       "Can't open '" + text + "'", 0);
    expectZipException([&] { Tarvik_ZipFile(missing, Tarvik_ZipFileModeUnzip); },
                       "Can't open '" + missing + "'", 0);
    expectZipException([&] { Tarvik_ZipFile(missing, Tarvik_ZipFileModeAppend); },
                       "Can't open '" + missing + "'", 0);
    std::string noFolder = test.root() + "/no/such/folder/a.zip";
    expectZipException([&] { Tarvik_ZipFile(noFolder, Tarvik_ZipFileModeCreate); },
                       "Can't open '" + noFolder + "'", 0);
}

TEST(ZipFileMisuse, ArchiveInAReadOnlyFolderCannotBeCreated) {
    TestRuntime test;
    ReadOnlyFolder folder(test.root() + "/locked");
    if (!folder.refusesNewFiles()) {
        GTEST_SKIP() << "this process can write into read-only folders anyway";
    }
    std::string path = folder.path() + "/a.zip";
    expectZipException([&] { Tarvik_ZipFile(path, Tarvik_ZipFileModeCreate); },
                       "Can't open '" + path + "'", 0);
}

TEST(ZipFileMisuse, PathWithSpacesAndAccentsWorks) {
    TestRuntime test;
    std::string folder = test.root() + "/Mes r\xC3\xA9sum\xC3\xA9s \xC3\x85ke";
    std::filesystem::create_directories(folder);
    std::string path = folder + "/archive \xC3\xB6\xC3\xB6.zip";
    writeArchive(path, {{"a b.txt", bytesOf("spaced"), 9}});
    expectUnzipTestPasses(path);
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    EXPECT_EQ(textOf(readEntry(archive, "a b.txt")), "spaced");
    archive.close();
}

TEST(ZipFileMisuse, EntryFailuresNameTheEntry) {
    TestRuntime test;
    std::string path = test.root() + "/a.zip";
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeCreate);
    // Levels beyond zlib's range fail with zlib's stream error.
    expectZipException([&] { archive.writeFileInZipWithName("too much.txt", 10); },
                       "Error in opening 'too much.txt' in zipfile", -2);
    expectZipException([&] { archive.writeFileInZipWithName("too little.txt", -2); },
                       "Error in opening 'too little.txt' in zipfile", -2);
    // The archive is still usable.
    archive.writeFileInZipWithName("fine.txt", 9)->finishedWriting();
    archive.close();
    EXPECT_EQ(readZipWithPython(path).size(), 1u);
}

TEST(ZipFileMisuse, ClosingTwiceThrows) {
    TestRuntime test;
    std::string path = test.root() + "/a.zip";
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeCreate);
    archive.close();
    expectZipException([&] { archive.close(); }, "Error in closing '" + path + "'", -102);
}

TEST(ZipFileMisuse, AnArchiveLeftOpenIsClosedWhenDestroyed) {
    TestRuntime test;
    std::string path = test.root() + "/unfinished.zip";
    {
        Tarvik_ZipFile archive(path, Tarvik_ZipFileModeCreate);
        archive.writeFileInZipWithName("a.txt", 9)->writeData(bytesOf("left open"));
    }
    expectUnzipTestPasses(path);
    EXPECT_EQ(textOf(readZipWithPython(path).at(0).contents), "left open");
}

}  // namespace
}  // namespace tarvik
