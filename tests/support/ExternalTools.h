#pragma once

#include <string>

namespace tarvik::testsupport {

struct CommandResult {
    int exitCode = -1;
    std::string output;  // standard output and standard error together
};

// Runs a shell command and captures what it prints.
CommandResult runCommand(const std::string& command);

// Runs a Python script with Debian's interpreter (which sees Debian's Python packages), with
// the given arguments passed as sys.argv[1:].
CommandResult runPython(const std::string& script, const std::string& arguments = "");

// Quotes text for the shell.
std::string shellQuoted(const std::string& text);

}  // namespace tarvik::testsupport
