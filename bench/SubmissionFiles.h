#pragma once

#include "GeneratedLog.h"

#include <tarvik/Value.h>

#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace tarvik::bench {

// What one submission gathers in the gathering benchmarks: three full logs, the host's
// defaults (written out as user_defaults.json) and ten host attachments, 14 files in all.
inline constexpr size_t kLogBytes = 100000;  // the logger keeps each log at most this long
inline constexpr size_t kAttachmentBytes = 50000;
inline constexpr int kAttachmentCount = 10;
inline constexpr int kGatheredFileCount = 3 + 1 + kAttachmentCount;

inline const std::vector<std::string>& logFileNames() {
    static const std::vector<std::string> names = {"user_tracking_logs.txt", "system_logs.txt",
                                                   "debug_logs.txt"};
    return names;
}

inline void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// The three logs, full, under their own names in `folder`.
inline void writeFullLogs(const std::string& folder) {
    for (const std::string& name : logFileNames()) {
        writeBytes(folder + "/" + name, generatedLogText(kLogBytes));
    }
}

// Ten host files in `folder`; returns their paths.
inline std::vector<std::string> writeAttachments(const std::string& folder) {
    std::vector<std::string> paths;
    for (int i = 0; i < kAttachmentCount; ++i) {
        paths.push_back(fmt::format("{}/attachment-{:02}.log", folder, i));
        writeBytes(paths.back(), generatedLogText(kAttachmentBytes));
    }
    return paths;
}

// Fifty defaults of the kinds an app keeps: flags, counters, names, timestamps, dates, small
// blobs and nested settings, so that every branch of the defaults conversion is exercised.
inline Dictionary hostDefaultsDomain() {
    Dictionary domain;
    for (int i = 0; i < 10; ++i) {
        domain[fmt::format("feature.flag.{}", i)] = Value(i % 3 == 0);
        domain[fmt::format("counter.{}", i)] = Value(std::int64_t{1000} * i + 7);
        domain[fmt::format("profile.name.{}", i)] = Value(fmt::format("user name number {}", i));
        domain[fmt::format("timing.{}", i)] = Value(0.125 * i + 1.0 / 3.0);
    }
    for (int i = 0; i < 5; ++i) {
        domain[fmt::format("last.opened.{}", i)] =
            Value(Date(std::chrono::seconds(1767323045 + 86400 * i)));
        domain[fmt::format("token.{}", i)] = Value(Data(32, static_cast<std::uint8_t>(i)));
    }
    for (int i = 0; i < 5; ++i) {
        domain[fmt::format("settings.{}", i)] =
            Value(Dictionary{{"theme", Value("dark")},
                             {"volume", Value(std::int64_t{7})},
                             {"recent", Value(Array{Value("a"), Value("b"), Value("c")})}});
    }
    return domain;
}

}  // namespace tarvik::bench
