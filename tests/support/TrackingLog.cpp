#include "support/TrackingLog.h"

#include "Helpers/TVKLogger.h"

#include <fstream>

namespace tarvik::testsupport {

std::vector<std::string> trackingLogMessages() {
    std::ifstream in(TVKLogger::sharedInstance()->userTrackingLogFilePath());
    std::vector<std::string> messages;
    for (std::string line; std::getline(in, line);) {
        // "yyyy-MM-dd HH:mm:ss.SSSSSS message"; a message of several lines goes on without one.
        bool stamped = line.size() >= 27 && line[4] == '-' && line[7] == '-' && line[10] == ' ' &&
                       line[19] == '.' && line[26] == ' ';
        if (stamped) {
            messages.push_back(line.substr(27));
        } else if (!messages.empty()) {
            messages.back() += "\n" + line;
        } else {
            messages.push_back("<no time stamp: " + line + ">");
        }
    }
    return messages;
}

}  // namespace tarvik::testsupport
