#include "Helpers/NSDate+Tarvik.h"

#include <fmt/format.h>

#include <ctime>

namespace tarvik {

std::string tarvik_ios8601Representation(Date date) {
    // Rounded down, so that a date just before a second's turn still shows the earlier second.
    auto seconds = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch());
    std::time_t time = static_cast<std::time_t>(seconds.count());
    std::tm gmt{};
    gmtime_r(&time, &gmt);
    return fmt::format("{:04d}-{:02d}-{:02d}T{:02d}:{:02d}:{:02d}+0000", gmt.tm_year + 1900,
                       gmt.tm_mon + 1, gmt.tm_mday, gmt.tm_hour, gmt.tm_min, gmt.tm_sec);
}

}  // namespace tarvik
