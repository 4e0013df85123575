#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarvik {

// A request as the SDK builds it and a transport sends it: the body is streamed from a file.
struct HttpRequest {
    // Cache policy "reload, ignoring local cache data".
    static constexpr int kReloadIgnoringLocalCacheData = 1;

    std::string method = "GET";
    std::string url;
    int cachePolicy = kReloadIgnoringLocalCacheData;
    double timeoutInterval = 60;
    std::vector<std::pair<std::string, std::string>> headers;  // in the order first set
    std::optional<std::string> bodyFilePath;

    // Sets a header by value: a second set replaces the first in its place; none removes it.
    void setValue(const std::optional<std::string>& value, const std::string& header) {
        for (auto it = headers.begin(); it != headers.end(); ++it) {
            if (it->first == header) {
                if (value) {
                    it->second = *value;
                } else {
                    headers.erase(it);
                }
                return;
            }
        }
        if (value) {
            headers.emplace_back(header, *value);
        }
    }

    std::optional<std::string> valueForHeader(const std::string& header) const {
        for (const auto& [name, value] : headers) {
            if (name == header) {
                return value;
            }
        }
        return std::nullopt;
    }
};

}  // namespace tarvik
