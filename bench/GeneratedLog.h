#pragma once

#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <string>

namespace tarvik::bench {

// Log-like text of exactly `length` bytes, the same on every run and machine: timestamps,
// levels and words drawn by a fixed-seed generator, so it compresses like a real log rather
// than like one repeated line.
inline std::string generatedLogText(size_t length) {
    static constexpr std::array<const char*, 16> kWords = {
        "request", "session", "upload", "retry",   "screenshot", "submission",
        "timeout", "network", "cache",  "invalid", "finished",   "started",
        "user",    "event",   "file",   "queue"};
    static constexpr std::array<const char*, 4> kLevels = {"DEBUG", "INFO", "WARN", "ERROR"};
    std::uint32_t state = 2463534242u;
    auto next = [&state] {  // xorshift32
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    };
    std::string text;
    text.reserve(length + 256);
    for (std::uint64_t line = 0; text.size() < length; ++line) {
        std::uint64_t millis = line * 137 + next() % 100;
        text += fmt::format("2026-01-02 {:02}:{:02}:{:02}.{:03} [{}] ", millis / 3600000 % 24,
                            millis / 60000 % 60, millis / 1000 % 60, millis % 1000,
                            kLevels[next() % kLevels.size()]);
        for (std::uint32_t words = 3 + next() % 9; words > 0; --words) {
            text += kWords[next() % kWords.size()];
            text += words > 1 ? ' ' : '\n';
        }
        if (next() % 5 == 0) {
            text += fmt::format("  id={:08x} bytes={}\n", next(), next() % 100000);
        }
    }
    text.resize(length);
    return text;
}

}  // namespace tarvik::bench
