#pragma once

#include <functional>
#include <string>
#include <vector>

// The delivery scenario of the test host: events recorded through the public interface and
// sent to a service given on the command line. `arguments` follow the scenario name:
//
//   record-events N [--service HOST:PORT] [--pin BASE64]... [--ca-bundle FILE] [--api-key KEY]
//                   [--message TEXT] [--attach FILE]... [--include-attachments]
//                   [--run SECONDS] [--until-delivered | --until-queued]
//                   [--report-issue [--shake-x RAW_FILE | --screenshot-into FOLDER]]
//
// With --report-issue the host then files one issue report through the reporter, with the
// message as its description (IssueReport.h), and reports "issue UUID". The SDK starts in the
// manual process type and the host opens the reporter itself, unless the report is to start as
// a person starts one: in the shake type by a shake of the virtual accelerometer whose x raw
// file is RAW_FILE (see TARVIK_SYSFS_ROOT), or in the screenshot type by a screenshot saved into
// FOLDER.
// The host runs for up to SECONDS after recording, or until no event is left in Processing or
// Queued (--until-delivered), or until all N have reached Queued (--until-queued). Output
// lines, each passed to `report` the moment it is known: "recording" before the first event,
// "queued UUID" for each event folder moved into Queued, then "left UUID STATUS" for each event
// (or issue) still in Processing or Queued, and "done".
using Report = std::function<void(const std::string& line)>;
int runDeliveryScenario(const std::vector<std::string>& arguments, const Report& report);
