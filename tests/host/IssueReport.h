#pragma once

#include <functional>
#include <string>

namespace tarvik {
class Tarvik;
}

// How a report is started: `start` sets it off; `settle` (if any) undoes what `start` did to
// the device once the reporter is open.
struct ReportTrigger {
    std::function<void()> start;
    std::function<void()> settle;
};

// Files an issue report through the reporter as a tester would: `trigger` opens the reporter
// (within 5 s) over a host window (a drawn app screen, 375 x 667 points at scale 2), a red stroke
// is drawn across the middle of the screenshot, Send, the session's e-mail kept as the form shows
// it, `description` typed, Submit. Reports "issue UUID" once the reporter has handed the issue on.
// Runs the SDK's main loop; false when a screen did not appear as expected (said on standard
// error).
bool fileIssueReport(tarvik::Tarvik& sdk, const std::string& description,
                     const ReportTrigger& trigger,
                     const std::function<void(const std::string&)>& report);
