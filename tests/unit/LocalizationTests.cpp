#include "Platform/Linux/GettextLocalization.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <libintl.h>

namespace tarvik {
namespace {

// A French catalogue for `domain`, compiled by gettext's own msgfmt into a fresh folder.
std::filesystem::path frenchCatalogue(const std::string& domain) {
    std::filesystem::path root =
        std::filesystem::temp_directory_path() / ("tarvik-gettext-" + std::to_string(::getpid()));
    std::filesystem::create_directories(root / "fr" / "LC_MESSAGES");
    std::ofstream(root / "fr.po") << "msgid \"\"\nmsgstr \"Content-Type: text/plain; "
                                     "charset=UTF-8\\n\"\n\n"
                                     "msgid \"OK\"\nmsgstr \"D\xE2\x80\x99\x61\x63\x63ord\"\n\n"
                                     "msgid \"Oops\"\nmsgstr \"\"\n";
    std::string command = "msgfmt -o '" +
                          (root / "fr" / "LC_MESSAGES" / (domain + ".mo")).string() + "' '" +
                          (root / "fr.po").string() + "'";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("msgfmt failed");
    }
    return root;
}

TEST(GettextLocalization, TranslatesFromTheHostsDomainOrTheCurrentOneAndNothingElse) {
    std::filesystem::path root = frenchCatalogue("tvkhost");
    ::setenv("LANGUAGE", "fr", 1);
    std::setlocale(LC_ALL, "C.UTF-8");
    ::bindtextdomain("tvkhost", root.c_str());

    GettextLocalization localization;
    // Before the host names its domain, the process's current one is asked.
    EXPECT_EQ(localization.translationForKey("OK"), std::nullopt);
    ::textdomain("tvkhost");
    EXPECT_EQ(localization.translationForKey("OK"), "D\xE2\x80\x99\x61\x63\x63ord");

    ::textdomain("messages");
    localization.setTextDomain("tvkhost");
    EXPECT_EQ(localization.translationForKey("OK"), "D\xE2\x80\x99\x61\x63\x63ord");
    // An entry without a translation, and a text the catalogue lacks, are none: the key shows.
    EXPECT_EQ(localization.translationForKey("Oops"), std::nullopt);
    EXPECT_EQ(localization.translationForKey("Circle the Problem"), std::nullopt);
    std::filesystem::remove_all(root);
}

}  // namespace
}  // namespace tarvik
