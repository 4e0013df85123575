// `tarvik`: a command-line front over the SDK for people who integrate it. It reads and writes
// the same folders as the library (so HOME and the XDG_* variables move them).

#include "Command.h"

#include <tarvik/Tarvik.h>

#include <cstdio>
#include <functional>
#include <map>

namespace {

using tarvik::tool::Arguments;

struct CommandEntry {
    std::function<int(const Arguments&)> run;
    const char* usage;
};

const std::map<std::string, CommandEntry>& commands() {
    static const std::map<std::string, CommandEntry> table = {
        {"settings",
         {tarvik::tool::settingsCommand, "settings            print the settings file as JSON"}},
        {"tree",
         {tarvik::tool::treeCommand, "tree                print the SDK's folders and files"}},
        {"zip",
         {tarvik::tool::zipCommand,
          "zip SOURCE ARCHIVE  pack one file into a new archive (level 9)"}},
        {"queue",
         {tarvik::tool::queueCommand,
          "queue               list pending submissions with their files"}},
        {"show",
         {tarvik::tool::showCommand,
          "show UUID           print a submission's properties and data as JSON"}},
        {"zip-list",
         {tarvik::tool::zipListCommand, "zip-list ARCHIVE    list an archive's entries"}},
    };
    return table;
}

void printUsage(std::FILE* stream) {
    std::fprintf(stream, "usage: tarvik COMMAND [ARGUMENTS]\n\ncommands:\n");
    for (const auto& [name, entry] : commands()) {
        std::fprintf(stream, "  %s\n", entry.usage);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Arguments arguments(argv + 1, argv + argc);
    if (arguments.empty()) {
        printUsage(stderr);
        return 2;
    }
    std::string name = arguments.front();
    arguments.erase(arguments.begin());
    if (name == "help" || name == "--help" || name == "-h") {
        printUsage(stdout);
        return 0;
    }
    if (name == "--version") {
        std::printf("%s\n", tarvik::Tarvik::sharedInstance().version().value_or("unknown").c_str());
        return 0;
    }
    auto command = commands().find(name);
    if (command == commands().end()) {
        std::fprintf(stderr, "tarvik: unknown command '%s'\n\n", name.c_str());
        printUsage(stderr);
        return 2;
    }
    return command->second.run(arguments);
}
