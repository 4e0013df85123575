// A one-shot driver for bench/compare_zip.sh:
//   ZipFileAtPath generate PATH BYTES   writes the benchmark's generated log text
//   ZipFileAtPath zip SOURCE ARCHIVE    packs SOURCE the way the SDK packs attachments
#include "GeneratedLog.h"

#include "Helpers/TVKFileHelper.h"
#include "Helpers/Tarvik_ZipException.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "generate") == 0) {
        std::ofstream(argv[2], std::ios::binary)
            << tarvik::bench::generatedLogText(std::stoul(argv[3]));
        return 0;
    }
    if (argc == 4 && std::strcmp(argv[1], "zip") == 0) {
        try {
            return tarvik::TVKFileHelper::zipFileAtPath(argv[2], argv[3]) ? 0 : 1;
        } catch (const tarvik::Tarvik_ZipException& error) {
            std::fprintf(stderr, "%s\n", error.what());
            return 1;
        }
    }
    std::fprintf(stderr, "usage: %s generate PATH BYTES | zip SOURCE ARCHIVE\n", argv[0]);
    return 2;
}
