#include "Command.h"

#include "Helpers/TVKDirectoryLayout.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

namespace tarvik::tool {

namespace fs = std::filesystem;

namespace {

// One line per entry, children indented under their folder and sorted by name; files show
// their size in bytes.
void printFolder(const fs::path& folder, int depth) {
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        entries.push_back(entry);
    }
    if (error) {
        std::printf("%*s(unreadable: %s)\n", depth * 2, "", error.message().c_str());
        return;
    }
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return a.path().filename() < b.path().filename();
    });
    for (const auto& entry : entries) {
        std::string name = entry.path().filename().string();
        if (entry.is_directory(error) && !entry.is_symlink(error)) {
            std::printf("%*s%s/\n", depth * 2, "", name.c_str());
            printFolder(entry.path(), depth + 1);
        } else {
            std::printf("%*s%s  (%ju bytes)\n", depth * 2, "", name.c_str(),
                        static_cast<std::uintmax_t>(
                            entry.is_regular_file(error) ? entry.file_size(error) : 0));
        }
    }
}

void printRoot(const std::string& path) {
    std::printf("%s/\n", path.c_str());
    if (fs::is_directory(path)) {
        printFolder(path, 1);
    } else {
        std::printf("  (not created yet)\n");
    }
}

}  // namespace

int treeCommand(const Arguments& arguments) {
    if (!arguments.empty()) {
        std::fprintf(stderr, "usage: tarvik tree\n");
        return 2;
    }
    printRoot(TVKDirectoryLayout::cacheFolderPath());
    printRoot(TVKDirectoryLayout::settingsFolderPath());
    return 0;
}

}  // namespace tarvik::tool
