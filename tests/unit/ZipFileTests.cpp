#include "Helpers/TVKZipCrypto.h"
#include "Helpers/Tarvik_ZipFile.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/Files.h"
#include "support/ZipArchiveChecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <optional>
#include <random>

#include <zlib.h>

namespace tarvik {
namespace {

using testing::TestRuntime;
using testsupport::expectUnzipTestPasses;
using testsupport::listNamesWithUnzip;
using testsupport::PythonZipEntry;
using testsupport::readFile;
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

std::uint32_t crcOf(const Data& bytes) {
    return static_cast<std::uint32_t>(crc32_z(0, bytes.data(), bytes.size()));
}

Date utc(std::int64_t secondsSinceEpoch) {
    return Date(std::chrono::seconds(secondsSinceEpoch));
}

// The date given to password entries; the others are dated by the clock.
const Date kPasswordEntryDate = utc(1767323046);  // 2026-01-02 03:04:06 UTC

struct EntryToWrite {
    std::string name;
    Data contents;
    std::int32_t level;
    std::optional<std::string> password = std::nullopt;  // the entry is encrypted when given
};

// Writes each entry in several pieces, so that consecutive writes into one entry are covered.
void writeArchive(const std::string& path, const std::vector<EntryToWrite>& entries) {
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeCreate);
    for (const EntryToWrite& entry : entries) {
        auto stream = entry.password ? archive.writeFileInZipWithName(
                                           entry.name, kPasswordEntryDate, entry.level,
                                           *entry.password, crcOf(entry.contents))
                                     : archive.writeFileInZipWithName(entry.name, entry.level);
        for (size_t offset = 0; offset < entry.contents.size(); offset += 1000) {
            size_t length = std::min<size_t>(1000, entry.contents.size() - offset);
            stream->writeData(std::span(entry.contents).subspan(offset, length));
        }
        stream->finishedWriting();
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

Data readEntry(Tarvik_ZipFile& archive, const std::string& name,
               const std::optional<std::string>& password = std::nullopt) {
    EXPECT_TRUE(archive.locateFileInZip(name)) << name;
    return readToEnd(password ? *archive.readCurrentFileInZipWithPassword(*password)
                              : *archive.readCurrentFileInZip());
}

// Runs `operation`, which must throw a Tarvik_ZipException with exactly `reason` and `error`.
void expectZipException(const std::function<void()>& operation, const std::string& reason,
                        std::int64_t error) {
    try {
        operation();
        ADD_FAILURE() << "no exception, expected: " << reason;
    } catch (const Tarvik_ZipException& exception) {
        EXPECT_EQ(exception.reason(), reason);
        EXPECT_EQ(exception.name(), "ZipException");
        EXPECT_EQ(exception.error(), error);
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

// ----------------------------------------------------------------------------------------------

// The known answers below come from the decrypter in Python's zipfile module, a separate
// implementation of the cipher: its keys after taking the password, and after decrypting
// twelve zero bytes.
TEST(ZipCrypto, KeysMatchKnownAnswers) {
    TestRuntime test;
    struct KnownAnswer {
        std::string password;
        std::array<std::uint32_t, 3> afterPassword;
        std::array<std::uint32_t, 3> afterTwelveZeros;
    };
    const std::vector<KnownAnswer> answers = {
        {"", {0x12345678, 0x23456789, 0x34567890}, {0xFC33CDE8, 0xAEC5B243, 0x04FBA034}},
        {"secret", {0xDDA9E469, 0x96212999, 0xF9FC9651}, {0x429BFDBB, 0xAFFE7E18, 0xE58EC660}},
        {"p\xC3\xA4ssw\xC3\xB6rd",
         {0xA52D8AEA, 0x04749CC1, 0x3E12EB0E},
         {0x5D74085D, 0x997E2F49, 0x84AF9CE6}},
    };
    for (const KnownAnswer& answer : answers) {
        SCOPED_TRACE(answer.password);
        TVKZipCrypto cipher(answer.password);
        EXPECT_EQ(cipher.keys(), answer.afterPassword);
        Data zeros(12, 0);
        cipher.decrypt(zeros);
        EXPECT_EQ(cipher.keys(), answer.afterTwelveZeros);
    }

    Data decrypted(12, 0);
    TVKZipCrypto("secret").decrypt(decrypted);
    EXPECT_EQ(decrypted,
              (Data{0xc8, 0x4f, 0xe7, 0x86, 0xba, 0xb7, 0x34, 0x1d, 0x4d, 0x3f, 0x82, 0x06}));
    // Encrypting the plain bytes gives the cipher bytes back.
    TVKZipCrypto("secret").encrypt(decrypted);
    EXPECT_EQ(decrypted, Data(12, 0));
}

// The header's last two bytes are the CRC's high ones, after ten random bytes that make equal
// data under an equal password encrypt differently each time.
TEST(ZipCrypto, HeaderEndsInTheCrcAndChecksOutOnlyWithItsPassword) {
    TestRuntime test;
    TVKZipCrypto::Header header = TVKZipCrypto("secret").encryptedHeader(0xCBF43926);
    EXPECT_NE(TVKZipCrypto("secret").encryptedHeader(0xCBF43926), header);
    TVKZipCrypto("secret").decrypt(header);
    EXPECT_EQ(header[10], 0xF4);
    EXPECT_EQ(header[11], 0xCB);

    // A fixed header rather than a random one, so that no wrong password passes by chance.
    TVKZipCrypto::Header fixed = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0xF4, 0xCB};
    TVKZipCrypto("secret").encrypt(fixed);
    EXPECT_TRUE(TVKZipCrypto("secret").acceptsHeader(fixed, 0xCB));
    EXPECT_FALSE(TVKZipCrypto("secret").acceptsHeader(fixed, 0xCC));
    EXPECT_FALSE(TVKZipCrypto("Secret").acceptsHeader(fixed, 0xCB));
    EXPECT_FALSE(TVKZipCrypto("").acceptsHeader(fixed, 0xCB));
}

// ----------------------------------------------------------------------------------------------

// Entries of each kind, checked against two readers that are not ours (they implement deflate,
// the traditional cipher and name encodings independently) and read back here.
// - Names that are not plain ASCII carry the UTF-8 flag, so that other tools decode them as
//   UTF-8 rather than as code page 437; bytes that are not UTF-8 have no encoding to declare.
//   Names are indexed decomposed, so either spelling of an accent finds its entry.
// - Dates are local calendar time, here UTC+2 in winter and UTC+3 in summer.
TEST(ZipFileWrite, EntriesOpenInUnzipPythonAndHere) {
    TestRuntime test;
    LocalTimeZone eastern("EET-2EEST,M3.5.0/3,M10.5.0/4");
    test.platform().virtualClock().setNow(utc(1784110830));  // 2026-07-15 10:20:30 UTC
    std::string path = test.root() + "/mixed.zip";
    const std::string password = "s3cret p\xC3\xA4ss";
    const std::string latin1 = "latin1 \xE9.bin";
    const std::vector<EntryToWrite> written = {
        {"stored.bin", randomBytes(3000, 1), 0},
        {"fastest.txt", repetitiveText(200), 1},
        {"default.txt", repetitiveText(200), -1},
        {"best.txt", repetitiveText(200), 9},
        {"empty", {}, 9},
        {kCafeComposed, bytesOf("cafe"), 9},
        {latin1, bytesOf("bytes"), 0},
        {"locked-empty-stored", {}, 0, password},
        {"locked-empty-deflated", {}, 9, password},
        {"locked-stored.bin", randomBytes(200 * 1024, 3), 0, password},
        {"locked-fastest.bin", randomBytes(200 * 1024, 4), 1, password},
        {"locked gro\u00DF.txt", repetitiveText(4500), 9, password},
    };
    const std::vector<std::int32_t> levels = {0, 1, -1, 9, 9, 9, 0, 0, 9, 0, 1, 9};
    const std::vector<bool> utf8Flags = {0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1};
    // The dates as Python reads them: 05:04:06 in winter, 13:20:30 in summer.
    const std::vector<int> passwordEntryLocalTime = {2026, 1, 2, 5, 4, 6};
    const std::vector<int> nowLocalTime = {2026, 7, 15, 13, 20, 30};
    writeArchive(path, written);

    expectUnzipTestPasses(path, password);
    std::vector<PythonZipEntry> seen = readZipWithPython(path, password);
    std::vector<std::string> listedByUnzip = listNamesWithUnzip(path);
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    std::vector<Tarvik_FileInZipInfo> infos = archive.listFileInZipInfos();
    ASSERT_EQ(seen.size(), written.size());
    ASSERT_EQ(listedByUnzip.size(), written.size());
    ASSERT_EQ(infos.size(), written.size());
    for (size_t i = 0; i < written.size(); ++i) {
        const EntryToWrite& entry = written[i];
        SCOPED_TRACE(entry.name);
        EXPECT_EQ(seen[i].name, entry.name);
        EXPECT_EQ((seen[i].flags & 0x800) != 0, utf8Flags[i]);
        if (entry.name != latin1) {
            EXPECT_EQ(seen[i].shownName, entry.name);
            EXPECT_EQ(listedByUnzip[i], entry.name);
        }
        EXPECT_EQ(seen[i].method, entry.level == 0 ? 0 : 8);
        EXPECT_EQ(seen[i].flags & 1, entry.password ? 1u : 0u);
        EXPECT_EQ(seen[i].contents, entry.contents);  // Python checks the CRC as it reads
        EXPECT_EQ(seen[i].date, entry.password ? passwordEntryLocalTime : nowLocalTime);
        EXPECT_EQ(infos[i].date(), entry.password ? kPasswordEntryDate : utc(1784110830));
        EXPECT_EQ(infos[i].level(), levels[i]);
        EXPECT_EQ(infos[i].crypted(), entry.password.has_value());
        EXPECT_EQ(readEntry(archive, entry.name, entry.password), entry.contents);
    }
    EXPECT_EQ(infos[5].name(), kCafeDecomposed);
    EXPECT_EQ(readEntry(archive, kCafeDecomposed), bytesOf("cafe"));
    EXPECT_FALSE(archive.locateFileInZip("cafe.txt"));
    archive.close();
    EXPECT_LT(seen[3].size, seen[3].length / 4);    // deflated text shrinks
    EXPECT_EQ(seen[7].size, 12u);                   // the encryption header alone
    EXPECT_EQ(seen[9].size, 200u * 1024 + 12);      // the header, then the stored data
    EXPECT_LT(seen[11].size, seen[11].length / 4);  // deflated before it is encrypted

    // Encrypted, the stored data no longer appears in the file.
    const Data& stored = written[9].contents;
    EXPECT_EQ(readFile(path).find(std::string(stored.begin() + 1000, stored.begin() + 1064)),
              std::string::npos);
}

// The zip command sets the data-descriptor flag on password entries, so their headers are
// checked against the entry's time rather than its CRC.
TEST(ZipFileRead, ReadsEveryKindOfEntryTheZipCommandWrites) {
    TestRuntime test;
    // The password entries are those the zip command encrypts.
    const std::vector<EntryToWrite> expected = {
        {"stored.txt", repetitiveText(40), 0},
        {"fastest.txt", repetitiveText(40), 1},
        {"best.txt", repetitiveText(40), 9},
        {"normal.txt", repetitiveText(40), -1},
        {"locked.bin", randomBytes(200 * 1024, 5), 0, "secret"},
        {"locked.txt", repetitiveText(4000), 9, "secret"},
    };
    for (const EntryToWrite& entry : expected) {
        writeFile(test.root() + "/" + entry.name, entry.contents);
    }
    testsupport::CommandResult zipped = runCommand(
        "cd " + shellQuoted(test.root()) +
        " && zip -q -0 made.zip stored.txt && zip -q -1 made.zip fastest.txt && "
        "zip -q -9 made.zip best.txt && zip -q made.zip normal.txt && "
        "zip -q -0 -P secret made.zip locked.bin && zip -q -9 -P secret made.zip locked.txt");
    ASSERT_EQ(zipped.exitCode, 0) << zipped.output;
    std::string path = test.root() + "/made.zip";
    std::vector<PythonZipEntry> seen = readZipWithPython(path, "secret");
    ASSERT_EQ(seen.size(), expected.size());

    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    std::vector<Tarvik_FileInZipInfo> infos = archive.listFileInZipInfos();
    ASSERT_EQ(infos.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(expected[i].name);
        EXPECT_EQ(seen[i].flags & 9, expected[i].password ? 9u : 0u);  // data descriptor: 8
        EXPECT_EQ(infos[i].name(), expected[i].name);
        EXPECT_EQ(infos[i].length(), seen[i].length);
        EXPECT_EQ(infos[i].size(), seen[i].size);
        EXPECT_EQ(infos[i].crc32(), seen[i].crc);
        EXPECT_EQ(infos[i].level(), expected[i].level);
        EXPECT_EQ(infos[i].crypted(), expected[i].password.has_value());
        // An entry without encryption needs no password, and the one given is ignored.
        EXPECT_EQ(readEntry(archive, expected[i].name, "secret"), expected[i].contents);
    }
    archive.close();
}

// The header's check byte refuses 255 in 256 wrong passwords on opening. The others decrypt
// to garbage, which must fail on reading (it does not inflate) or on finishing (its CRC does not
// match): tries wrong passwords until both kinds have turned up.
TEST(ZipFilePassword, WrongPasswordsAreRefusedOrFailTheDataChecks) {
    TestRuntime test;
    std::string path = test.root() + "/locked.zip";
    writeArchive(path, {{"stored.txt", repetitiveText(40), 0, "secret"},
                        {"deflated.txt", repetitiveText(40), 9, "secret"}});
    Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
    for (const std::string name : {"stored.txt", "deflated.txt"}) {
        SCOPED_TRACE(name);
        int refused = 0;
        int slippedThrough = 0;
        for (int i = 0; i < 20000 && !(refused && slippedThrough); ++i) {
            ASSERT_TRUE(archive.locateFileInZip(name));
            try {
                readToEnd(*archive.readCurrentFileInZipWithPassword("wrong " + std::to_string(i)));
                ADD_FAILURE() << "'wrong " << i << "' read the entry";
            } catch (const Tarvik_ZipException& exception) {
                if (exception.error() == Tarvik_ZipErrorWrongPassword) {
                    EXPECT_EQ(exception.reason(),
                              "Error in opening current file in '" + path + "'");
                    ++refused;
                } else {
                    EXPECT_THAT(exception.reason(),
                                ::testing::AnyOf("Error in reading '" + name + "' in the zipfile",
                                                 "Error in closing '" + name + "' in the zipfile"));
                    ++slippedThrough;
                }
            }
        }
        EXPECT_GT(refused, 0);
        EXPECT_GT(slippedThrough, 0);
    }
    archive.close();
}

// ----------------------------------------------------------------------------------------------

// An archive without entries is only its end record, at the very start of the file.
TEST(ZipFileRead, ArchivesWithoutEntriesListAsEmpty) {
    TestRuntime test;
    std::string made = test.root() + "/made.zip";
    Tarvik_ZipFile(made, Tarvik_ZipFileModeCreate).close();
    std::string python = test.root() + "/python.zip";
    std::string commented = test.root() + "/commented.zip";
    ASSERT_EQ(
        runPython("import sys, zipfile\n"
                  "zipfile.ZipFile(sys.argv[1], 'w').close()\n"
                  "with zipfile.ZipFile(sys.argv[2], 'w') as z: z.comment = b'nothing here'\n",
                  shellQuoted(python) + " " + shellQuoted(commented))
            .exitCode,
        0);
    for (const std::string& path : {made, python, commented}) {
        SCOPED_TRACE(path);
        Tarvik_ZipFile archive(path, Tarvik_ZipFileModeUnzip);
        EXPECT_EQ(archive.numFilesInZip(), 0u);
        EXPECT_TRUE(archive.listFileInZipInfos().empty());
        EXPECT_TRUE(archive.contents().empty());
        EXPECT_FALSE(archive.locateFileInZip("a.txt"));
        EXPECT_FALSE(archive.goToNextFileInZip());
        expectZipException([&] { archive.readCurrentFileInZip(); },
                           "Error in opening current file in '" + path + "'", -100);
        archive.close();
    }
    // The same end record claiming an entry, or followed by bytes that are not its comment, is
    // no archive.
    std::string emptyRecord = readFile(python);
    std::string claimsAnEntry = emptyRecord;
    claimsAnEntry[10] = 1;
    claimsAnEntry[8] = 1;
    for (const std::string& bytes : {claimsAnEntry, emptyRecord + "trailing"}) {
        std::string path = test.root() + "/broken.zip";
        writeFile(path, bytes);
        expectZipException([&] { Tarvik_ZipFile(path, Tarvik_ZipFileModeUnzip); },
                           "Can't open '" + path + "'", 0);
    }
}

// Each misuse throws a Tarvik_ZipException with its reason, and the error code of zlib or
// minizip where one of them refused; an archive that is never closed is closed for its owner.
TEST(ZipFileMisuse, ThrowsItsReasonAndErrorAndAnArchiveLeftOpenIsClosedOnDestruction) {
    TestRuntime test;
    std::string path = test.root() + "/a.zip";
    writeArchive(path, {{"a.txt", bytesOf("a"), 9}});
    std::string notAnArchive = test.root() + "/notes.zip";
    writeFile(notAnArchive, "just some notes, not an archive\n");
    std::string created = test.root() + "/b.zip";
    Tarvik_ZipFile reader(path, Tarvik_ZipFileModeUnzip);
    Tarvik_ZipFile writer(created, Tarvik_ZipFileModeCreate);
    expectZipException([&] { Tarvik_ZipFile(path, 3); }, "Unknown mode 3", 0);
    expectZipException([&] { Tarvik_ZipFile(notAnArchive, Tarvik_ZipFileModeUnzip); },
                       "Can't open '" + notAnArchive + "'", 0);
    expectZipException([&] { reader.writeFileInZipWithName("b.txt", 9); },
                       "Operation not permitted with Unzip mode", 0);
    expectZipException([&] { writer.numFilesInZip(); },
                       "Operation not permitted without Unzip mode", 0);
    expectZipException([&] { writer.readCurrentFileInZipWithPassword("pw"); },
                       "Operation not permitted without Unzip mode", 0);
    // Levels beyond zlib's range fail with zlib's stream error.
    expectZipException([&] { writer.writeFileInZipWithName("too much.txt", 10); },
                       "Error in opening 'too much.txt' in zipfile", -2);
    reader.close();

    // The archive being written is still usable; closing it twice is refused by minizip.
    writer.writeFileInZipWithName("fine.txt", 9)->finishedWriting();
    writer.close();
    EXPECT_EQ(readZipWithPython(created).size(), 1u);
    expectZipException([&] { writer.close(); }, "Error in closing '" + created + "'", -102);

    // An archive left open is closed, and so made whole, when destroyed.
    {
        Tarvik_ZipFile unfinished(path, Tarvik_ZipFileModeCreate);
        unfinished.writeFileInZipWithName("a.txt", 9)->writeData(bytesOf("left open"));
    }
    expectUnzipTestPasses(path);
    EXPECT_EQ(readZipWithPython(path).at(0).contents, bytesOf("left open"));
}

}  // namespace
}  // namespace tarvik
