#pragma once

#include <tarvik/Value.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tarvik::testsupport {

// One entry of an archive as Python's zipfile reads it.
struct PythonZipEntry {
    std::string name;       // the stored bytes
    std::string shownName;  // the name Python decodes from them, as UTF-8
    int method = -1;        // 0 stored, 8 deflated
    unsigned flags = 0;
    std::uint64_t length = 0;  // uncompressed
    std::uint64_t size = 0;    // compressed
    std::uint64_t crc = 0;
    std::vector<int> date;  // year, month, day, hour, minute, second as stored
    Data contents;          // left empty for an encrypted entry when no password is given
};

// Reads every entry of an archive with Python's zipfile; a failure is reported to GoogleTest
// and gives no entries.
std::vector<PythonZipEntry> readZipWithPython(const std::string& archive,
                                              const std::string& password = "");

// Checks the archive with `unzip -t`, which tests every entry's CRC; encrypted entries are
// decrypted with the password.
void expectUnzipTestPasses(const std::string& archive, const std::string& password = "");

// The entry names as `unzip -Z1` prints them in a UTF-8 locale, one per entry.
std::vector<std::string> listNamesWithUnzip(const std::string& archive);

}  // namespace tarvik::testsupport
