#pragma once

#include <string>
#include <vector>

namespace tarvik::testsupport {

// The user-tracking log's records, without their time stamps; a record may span lines.
std::vector<std::string> trackingLogMessages();

}  // namespace tarvik::testsupport
