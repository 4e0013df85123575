#include "Command.h"
#include "DisplayJson.h"

#include "Helpers/TVKDirectoryLayout.h"
#include "Platform/PropertyList.h"

#include <cstdio>
#include <filesystem>

namespace tarvik::tool {

int settingsCommand(const Arguments& arguments) {
    if (!arguments.empty()) {
        std::fprintf(stderr, "usage: tarvik settings\n");
        return 2;
    }
    // Read the file as it is: looking must not create it.
    std::string path = TVKDirectoryLayout::settingsFilePath();
    if (!std::filesystem::exists(path)) {
        std::fprintf(stderr, "tarvik: no settings file at %s (the SDK has not run here yet)\n",
                     path.c_str());
        return 1;
    }
    std::optional<Value> settings = plist::readFile(path);
    if (!settings) {
        std::fprintf(stderr, "tarvik: %s is not a property list\n", path.c_str());
        return 1;
    }
    std::printf("%s\n", displayJson(*settings).dump(2).c_str());
    return 0;
}

}  // namespace tarvik::tool
