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
    const char* arguments;
    const char* description;
};

const std::map<std::string, CommandEntry>& commands() {
    static const std::map<std::string, CommandEntry> table = {
        {"canvas",
         {tarvik::tool::canvasCommand, "--size WxH --scale S --strokes FILE --out PNG",
          "draw strokes with the reporter's canvas and write the result"}},
        {"preview",
         {tarvik::tool::previewCommand, "--screenshot PNG --out DIR [--scale S]",
          "run the reporter over a screenshot and write a PNG of each of its screens"}},
        {"body",
         {tarvik::tool::bodyCommand, "UUID [--dump FILE]",
          "build (if needed) and show a submission's request"}},
        {"queue", {tarvik::tool::queueCommand, "", "list pending submissions with their files"}},
        {"send",
         {tarvik::tool::sendCommand, "UUID [--host H] [--pin P]... [--ca-bundle F]",
          "send one queued submission now and print the outcome"}},
        {"settings", {tarvik::tool::settingsCommand, "", "print the settings file as JSON"}},
        {"show",
         {tarvik::tool::showCommand, "UUID", "print a submission's properties and data as JSON"}},
        {"tree", {tarvik::tool::treeCommand, "", "print the SDK's folders and files"}},
        {"zip",
         {tarvik::tool::zipCommand, "SOURCE ARCHIVE",
          "pack one file into a new archive (level 9)"}},
        {"zip-list", {tarvik::tool::zipListCommand, "ARCHIVE", "list an archive's entries"}},
    };
    return table;
}

void printUsage(std::FILE* stream) {
    std::fprintf(stream, "usage: tarvik COMMAND [ARGUMENTS]\n\ncommands:\n");
    for (const auto& [name, entry] : commands()) {
        std::string usage = name + " " + entry.arguments;
        std::fprintf(stream, "  %-44s %s\n", usage.c_str(), entry.description);
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
