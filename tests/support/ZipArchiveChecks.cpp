#include "support/ZipArchiveChecks.h"

#include "support/ExternalTools.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace tarvik::testsupport {

namespace {

Data fromHex(const std::string& hex) {
    Data bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// Names are given as their stored bytes: UTF-8 when the entry says so, else code page 437.
const char* kReadScript = R"(
import json, sys, zipfile
password = sys.argv[2].encode() if len(sys.argv) > 2 else None
entries = []
with zipfile.ZipFile(sys.argv[1]) as archive:
    for info in archive.infolist():
        raw = info.orig_filename.encode('utf-8' if info.flag_bits & 0x800 else 'cp437')
        readable = password or not info.flag_bits & 1
        entries.append({'name': raw.hex(), 'shown': info.filename.encode().hex(),
                        'method': info.compress_type, 'flags': info.flag_bits,
                        'length': info.file_size, 'size': info.compress_size, 'crc': info.CRC,
                        'date': list(info.date_time),
                        'contents': archive.read(info, pwd=password).hex() if readable else ''})
print(json.dumps(entries))
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
    if (result.exitCode != 0) {
        return entries;
    }
    for (const auto& item : nlohmann::json::parse(result.output)) {
        PythonZipEntry entry;
        Data name = fromHex(item["name"]);
        entry.name.assign(name.begin(), name.end());
        Data shown = fromHex(item["shown"]);
        entry.shownName.assign(shown.begin(), shown.end());
        entry.method = item["method"];
        entry.flags = item["flags"];
        entry.length = item["length"];
        entry.size = item["size"];
        entry.crc = item["crc"];
        entry.date = item["date"].get<std::vector<int>>();
        entry.contents = fromHex(item["contents"]);
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

void extractWithUnzip(const std::string& archive, const std::string& folder,
                      const std::string& password) {
    CommandResult result = runCommand("unzip -q -o " + passwordOption(password) +
                                      shellQuoted(archive) + " -d " + shellQuoted(folder));
    EXPECT_EQ(result.exitCode, 0) << result.output;
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
