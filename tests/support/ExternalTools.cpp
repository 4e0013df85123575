#include "support/ExternalTools.h"

#include <array>
#include <cstdio>
#include <fstream>

#include <sys/wait.h>
#include <unistd.h>

namespace tarvik::testsupport {

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
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
    char path[] = "/tmp/tarvik-check-XXXXXX.py";
    int fd = ::mkstemps(path, 3);
    if (fd < 0) {
        return {};
    }
    ::close(fd);
    std::ofstream(path) << script;
    CommandResult result =
        runCommand(std::string(TARVIK_TEST_PYTHON) + " " + path + " " + arguments);
    ::unlink(path);
    return result;
}

}  // namespace tarvik::testsupport
