#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tarvik::tool {

using Arguments = std::vector<std::string>;

// Each command prints to standard output, reports problems on standard error and returns the
// process exit code: 0 done, 1 failed, 2 used wrongly.
int settingsCommand(const Arguments& arguments);
int treeCommand(const Arguments& arguments);
int zipCommand(const Arguments& arguments);
int zipListCommand(const Arguments& arguments);
int queueCommand(const Arguments& arguments);
int showCommand(const Arguments& arguments);
int bodyCommand(const Arguments& arguments);
int sendCommand(const Arguments& arguments);
int canvasCommand(const Arguments& arguments);
int previewCommand(const Arguments& arguments);

// A positive number written in full ("2", "2.5"), as a screen's scale is given.
std::optional<double> parseScale(const std::string& text);

}  // namespace tarvik::tool
