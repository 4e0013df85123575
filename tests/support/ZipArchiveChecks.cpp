#include "support/ZipArchiveChecks.h"

#include "support/ExternalTools.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

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
        entries.append({'name': raw.hex(), 'method': info.compress_type, 'flags': info.flag_bits,
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

void expectUnzipTestPasses(const std::string& archive) {
    CommandResult result = runCommand("unzip -t " + shellQuoted(archive));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_NE(result.output.find("No errors detected"), std::string::npos) << result.output;
}

}  // namespace tarvik::testsupport
