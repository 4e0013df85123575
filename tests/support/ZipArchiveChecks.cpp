#include "support/ZipArchiveChecks.h"

#include "support/ExternalTools.h"

#include <gtest/gtest.h>

#include <sstream>

namespace tarvik::testsupport {

namespace {

std::string fromHex(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// One line per entry. Names are given as their stored bytes (UTF-8 when the entry says so, else
// code page 437) and as Python decodes them; the contents come last, an empty word when empty.
const char* kReadScript = R"(
import sys, zipfile
password = sys.argv[2].encode() if len(sys.argv) > 2 else None
with zipfile.ZipFile(sys.argv[1]) as archive:
    for info in archive.infolist():
        raw = info.orig_filename.encode('utf-8' if info.flag_bits & 0x800 else 'cp437')
        readable = password or not info.flag_bits & 1
        contents = archive.read(info, pwd=password) if readable else b''
        print(raw.hex(), info.filename.encode().hex(), info.compress_type, info.flag_bits,
              info.file_size, info.compress_size, info.CRC, *info.date_time, contents.hex())
)";

}  // namespace

std::vector<PythonZipEntry> readZipWithPython(const std::string& archive,
                                              const std::string& password) {
    std::string arguments = shellQuoted(archive);
    if (!password.empty()) {
        arguments += " " + shellQuoted(password);
    }
    CommandResult result = runPython(kReadScript, arguments);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    std::vector<PythonZipEntry> entries;
    std::istringstream lines(result.exitCode == 0 ? result.output : "");
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        PythonZipEntry entry;
        std::string name;
        std::string shownName;
        std::string contents;
        entry.date.resize(6);
        fields >> name >> shownName >> entry.method >> entry.flags >> entry.length >> entry.size >>
            entry.crc;
        for (int& part : entry.date) {
            fields >> part;
        }
        fields >> contents;
        entry.name = fromHex(name);
        entry.shownName = fromHex(shownName);
        std::string bytes = fromHex(contents);
        entry.contents.assign(bytes.begin(), bytes.end());
        entries.push_back(std::move(entry));
    }
    return entries;
}

namespace {

std::string passwordOption(const std::string& password) {
    return password.empty() ? "" : "-P " + shellQuoted(password) + " ";
}

}  // namespace

void expectUnzipTestPasses(const std::string& archive, const std::string& password) {
    CommandResult result =
        runCommand("unzip -t " + passwordOption(password) + shellQuoted(archive));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_NE(result.output.find("No errors detected"), std::string::npos) << result.output;
}

std::vector<std::string> listNamesWithUnzip(const std::string& archive) {
    // Without the UTF-8 flag, unzip reads the name of an entry marked as made on MS-DOS (as
    // minizip marks them) as code page 437 text, and prints it garbled.
    CommandResult result = runCommand("LC_ALL=C.UTF-8 unzip -Z1 " + shellQuoted(archive));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    std::vector<std::string> names;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        names.push_back(line);
    }
    return names;
}

}  // namespace tarvik::testsupport
