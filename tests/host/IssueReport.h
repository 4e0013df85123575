#pragma once

#include <functional>
#include <string>

namespace tarvik {
class Tarvik;
}

// Files an issue report through the reporter as a tester would: the reporter opens over a
// host window (a drawn app screen, 375 x 667 points at scale 2), a red stroke is drawn across
// the middle of the screenshot, Send, the session's e-mail kept as the form shows it,
// `description` typed, Submit. Reports "issue UUID" once the reporter has handed the issue on. Runs
// the SDK's main loop; false when a screen did not appear as expected (said on standard error).
bool fileIssueReport(tarvik::Tarvik& sdk, const std::string& description,
                     const std::function<void(const std::string&)>& report);
