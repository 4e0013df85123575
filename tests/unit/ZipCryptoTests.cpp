#include "Helpers/TVKZipCrypto.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace tarvik {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Keys = std::array<std::uint32_t, 3>;
using testing::TestRuntime;
using testsupport::runCommand;
using testsupport::runPython;
using testsupport::shellQuoted;

Bytes fromHex(std::string_view hex) {
    Bytes bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(
            static_cast<std::uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
    }
    return bytes;
}

// The known answers below come from the decrypter in Python's zipfile module, a separate
// implementation of the cipher: its keys after taking the password, and after decrypting
// twelve zero bytes.
TEST(ZipCrypto, KeysMatchKnownAnswers) {
    TestRuntime test;
    struct KnownAnswer {
        std::string password;
        Keys afterPassword;
        Keys afterTwelveZeros;
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
        Bytes zeros(12, 0);
        cipher.decrypt(zeros);
        EXPECT_EQ(cipher.keys(), answer.afterTwelveZeros);
    }

    Bytes decrypted(12, 0);
    TVKZipCrypto("secret").decrypt(decrypted);
    EXPECT_EQ(decrypted, fromHex("c84fe786bab7341d4d3f8206"));
    // Encrypting the plain bytes gives the cipher bytes back.
    TVKZipCrypto("secret").encrypt(decrypted);
    EXPECT_EQ(decrypted, Bytes(12, 0));
}

TEST(ZipCrypto, DecryptsWhatTheZipCommandEncrypted) {
    TestRuntime test;
    const std::string text = "The quick brown fox jumps over the lazy dog, twice over.\n";
    std::ofstream(test.root() + "/fox.txt") << text;
    std::string archive = test.root() + "/fox.zip";
    testsupport::CommandResult zipped = runCommand(
        "cd " + shellQuoted(test.root()) + " && zip -q -0 -P 'open sesame' fox.zip fox.txt");
    ASSERT_EQ(zipped.exitCode, 0) << zipped.output;

    // Where the entry's stored bytes start, how many there are, and the DOS time that the
    // header's last byte is checked against (the zip command streams password entries).
    testsupport::CommandResult located = runPython(R"(
import struct, sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as archive:
    info = archive.getinfo('fox.txt')
with open(sys.argv[1], 'rb') as f:
    f.seek(info.header_offset)
    header = f.read(30)
name_length, extra_length = struct.unpack('<HH', header[26:30])
print(info.header_offset + 30 + name_length + extra_length, info.compress_size, info._raw_time)
)",
                                                   shellQuoted(archive));
    ASSERT_EQ(located.exitCode, 0) << located.output;
    size_t offset = 0, size = 0;
    unsigned time = 0;
    std::istringstream(located.output) >> offset >> size >> time;
    ASSERT_EQ(size, text.size() + TVKZipCrypto::kHeaderLength);

    std::ifstream in(archive, std::ios::binary);
    Bytes file((std::istreambuf_iterator<char>(in)), {});
    ASSERT_GE(file.size(), offset + size);
    Bytes stored(file.begin() + static_cast<std::ptrdiff_t>(offset),
                 file.begin() + static_cast<std::ptrdiff_t>(offset + size));

    TVKZipCrypto cipher("open sesame");
    cipher.decrypt(stored);
    EXPECT_EQ(stored[TVKZipCrypto::kHeaderLength - 1], time >> 8);
    EXPECT_EQ(std::string(stored.begin() + TVKZipCrypto::kHeaderLength, stored.end()), text);
}

TEST(ZipCrypto, HeaderEndsInTheCrcAndStartsAtRandom) {
    TestRuntime test;
    const std::uint32_t crc = 0xCBF43926;
    TVKZipCrypto::Header header = TVKZipCrypto("secret").encryptedHeader(crc);
    TVKZipCrypto::Header decrypted = header;
    TVKZipCrypto("secret").decrypt(decrypted);
    EXPECT_EQ(decrypted[10], 0xF4);  // the CRC's bytes 2 and 3
    EXPECT_EQ(decrypted[11], 0xCB);
    // The first ten bytes are random: equal data under an equal password encrypts differently
    // each time.
    EXPECT_NE(TVKZipCrypto("secret").encryptedHeader(crc), header);
}

TEST(ZipCrypto, HeaderChecksOutOnlyWithItsPasswordAndCheckByte) {
    TestRuntime test;
    TVKZipCrypto::Header header = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0xF4, 0xCB};
    TVKZipCrypto("secret").encrypt(header);
    EXPECT_TRUE(TVKZipCrypto("secret").acceptsHeader(header, 0xCB));
    EXPECT_FALSE(TVKZipCrypto("secret").acceptsHeader(header, 0xCC));
    EXPECT_FALSE(TVKZipCrypto("Secret").acceptsHeader(header, 0xCB));
    EXPECT_FALSE(TVKZipCrypto("").acceptsHeader(header, 0xCB));
}

}  // namespace
}  // namespace tarvik
