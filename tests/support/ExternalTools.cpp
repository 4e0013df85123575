#include "support/ExternalTools.h"

#include <array>
#include <cstdio>
#include <regex>

#include <sys/wait.h>

namespace tarvik::testsupport {

std::string shellQuoted(const std::string& text) {
    // Each quote closes the quoted text, adds an escaped quote and opens it again.
    return "'" + std::regex_replace(text, std::regex("'"), "'\\''") + "'";
}

CommandResult runCommand(const std::string& command) {
    CommandResult result;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (!pipe) {
        return result;
    }
    std::array<char, 4096> buffer{};
    size_t n = 0;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) {
        result.output.append(buffer.data(), n);
    }
    int status = ::pclose(pipe);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

CommandResult runPython(const std::string& script, const std::string& arguments) {
    // "-c" keeps sys.argv[1:] as the arguments and needs no script file.
    return runCommand(std::string(TARVIK_TEST_PYTHON) + " -c " + shellQuoted(script) + " " +
                      arguments);
}

}  // namespace tarvik::testsupport
