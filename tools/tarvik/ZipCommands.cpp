#include "Command.h"

#include "Helpers/TVKFileHelper.h"
#include "Helpers/Tarvik_ZipFile.h"

#include <cinttypes>
#include <cstdio>

namespace tarvik::tool {

int zipCommand(const Arguments& arguments) {
    if (arguments.size() != 2) {
        std::fprintf(stderr, "usage: tarvik zip SOURCE ARCHIVE\n");
        return 2;
    }
    try {
        if (!TVKFileHelper::zipFileAtPath(arguments[0], arguments[1])) {
            std::fprintf(stderr, "tarvik: cannot read %s\n", arguments[0].c_str());
            return 1;
        }
    } catch (const Tarvik_ZipException& error) {
        std::fprintf(stderr, "tarvik: %s\n", error.what());
        return 1;
    }
    return 0;
}

int zipListCommand(const Arguments& arguments) {
    if (arguments.size() != 1) {
        std::fprintf(stderr, "usage: tarvik zip-list ARCHIVE\n");
        return 2;
    }
    try {
        Tarvik_ZipFile archive(arguments[0], Tarvik_ZipFileModeUnzip);
        // One tab-separated line per entry: name, length, level, crypted, size, crc32.
        for (const Tarvik_FileInZipInfo& info : archive.listFileInZipInfos()) {
            std::printf("%s\t%" PRIu64 "\t%d\t%s\t%" PRIu64 "\t%08" PRIx64 "\n",
                        info.name().c_str(), info.length(), info.level(),
                        info.crypted() ? "yes" : "no", info.size(), info.crc32());
        }
        archive.close();
    } catch (const Tarvik_ZipException& error) {
        std::fprintf(stderr, "tarvik: %s\n", error.what());
        return 1;
    }
    return 0;
}

}  // namespace tarvik::tool
