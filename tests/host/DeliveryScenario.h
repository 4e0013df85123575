#pragma once

#include <string>
#include <vector>

// The delivery scenarios of the test host: events recorded through the public interface and
// sent to a service given on the command line, with a line on standard output for each event
// folder that reaches the Queued folder. `arguments` follow the scenario name.
//
//   record-events N [--service HOST:PORT] [--pin BASE64]... [--ca-bundle FILE] [--api-key KEY]
//                   [--message TEXT] [--attach FILE]... [--include-attachments] [--icon NAME]
//                   [--debug] [--wait-enabled SECONDS] [--interval SECONDS] [--run SECONDS]
//                   [--until-delivered]
//   deliver [same options]      (record-events 0 --until-delivered)
//
// Output lines: "enabled" once events may be recorded, "recording" before the first event,
// "queued UUID" for each event folder moved into Queued, then "left UUID STATUS" for each event
// still in Processing or Queued at the end, and "done".
int runDeliveryScenario(const std::string& scenario, const std::vector<std::string>& arguments);
