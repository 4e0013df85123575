#include "Helpers/UIApplication+Tarvik.h"
#include "Platform/Runtime.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tarvik {
namespace {

using testing::TestRuntime;
using Pixel = Image::Pixel;

namespace fs = std::filesystem;

Dictionary infoWithIconFiles(Value iconFiles) {
    return {{"CFBundleIcons",
             Dictionary{{"CFBundlePrimaryIcon", Dictionary{{"CFBundleIconFiles", iconFiles}}}}}};
}

// The Testing platform's main bundle: a folder inside the test's root.
class AppIcon : public ::testing::Test {
  protected:
    AppIcon() { fs::create_directories(bundleFolder()); }

    std::string bundleFolder() const {
        return Runtime::current().platform().mainBundle().resourcePath();
    }

    void useIconFiles(Value iconFiles) {
        Runtime::current().platform().setMainBundleInfo(infoWithIconFiles(std::move(iconFiles)));
    }

    // Writes a PNG of `pixels` × `pixels` pixels filled with `red` (0 to 1) to the bundle.
    void writePngIcon(const std::string& fileName, int pixels, double red) {
        Data png =
            *Image::filled(pixels, pixels, 1, {red, 0, 0, 1}, Image::Opaque)->pngRepresentation();
        writeBundleFile(fileName,
                        std::string(reinterpret_cast<const char*>(png.data()), png.size()));
    }

    void writeBundleFile(const std::string& fileName, const std::string& bytes) {
        std::ofstream(bundleFolder() + "/" + fileName, std::ios::binary) << bytes;
    }

    TestRuntime test;
};

TEST_F(AppIcon, FirstIconFileIsLoadedAtTheScaleOfItsSuffix) {
    writePngIcon("AppIcon60x60@2x.png", 120, 1.0);
    writePngIcon("Other@3x.png", 90, 0.5);
    useIconFiles(Array{"AppIcon60x60", "Other"});

    std::optional<Image> icon = tarvik_appIcon();
    ASSERT_TRUE(icon);
    EXPECT_EQ(icon->scale(), 2);
    EXPECT_EQ(icon->width(), 60);
    EXPECT_EQ(icon->height(), 60);
    EXPECT_EQ(icon->pixelWidth(), 120);
    EXPECT_EQ(icon->pixelAt(60, 60), (Pixel{255, 255, 0, 0}));
}

TEST_F(AppIcon, SharpestVariantWins) {
    useIconFiles(Array{"Icon"});
    writePngIcon("Icon.png", 30, 0.2);
    writePngIcon("Icon@2x.png", 60, 0.4);
    writePngIcon("Icon@3x.png", 90, 0.6);
    struct Expected {
        double scale;
        int pixels;
        std::uint8_t red;
    };
    for (auto [scale, pixels, red] :
         {Expected{3, 90, 153}, Expected{2, 60, 102}, Expected{1, 30, 51}}) {
        std::optional<Image> icon = tarvik_appIcon();
        ASSERT_TRUE(icon) << "at " << scale << "x";
        EXPECT_EQ(icon->scale(), scale);
        EXPECT_EQ(icon->width(), 30);
        EXPECT_EQ(icon->pixelWidth(), pixels);
        EXPECT_EQ(icon->pixelAt(0, 0).red, red);
        fs::remove(bundleFolder() + "/Icon@" + std::to_string(int(scale)) + "x.png");
    }
    fs::remove(bundleFolder() + "/Icon.png");
    EXPECT_FALSE(tarvik_appIcon());
}

TEST_F(AppIcon, NameWithAnExtensionIsFoundToo) {
    writePngIcon("Square@2x.png", 40, 1.0);
    useIconFiles(Array{"Square@2x.png"});
    std::optional<Image> png = tarvik_appIcon();
    ASSERT_TRUE(png);
    EXPECT_EQ(png->scale(), 2);
    EXPECT_EQ(png->width(), 20);

    Data jpeg = *Image::filled(16, 16, 1, {0, 0, 1, 1}, Image::Opaque)->jpegRepresentation(0.9);
    writeBundleFile("Photo.jpg",
                    std::string(reinterpret_cast<const char*>(jpeg.data()), jpeg.size()));
    useIconFiles(Array{"Photo.jpg"});
    std::optional<Image> photo = tarvik_appIcon();
    ASSERT_TRUE(photo);
    EXPECT_EQ(photo->scale(), 1);
    EXPECT_EQ(photo->width(), 16);
}

TEST_F(AppIcon, MissingOrMistypedKeysGiveNone) {
    writePngIcon("AppIcon@2x.png", 40, 1.0);
    const std::pair<const char*, Dictionary> infos[] = {
        {"no icons", Dictionary{{"CFBundleName", "Host"}}},
        {"icons not a dictionary", Dictionary{{"CFBundleIcons", "AppIcon"}}},
        {"no primary icon", Dictionary{{"CFBundleIcons", Dictionary{}}}},
        {"primary icon not a dictionary",
         Dictionary{{"CFBundleIcons", Dictionary{{"CFBundlePrimaryIcon", "AppIcon"}}}}},
        {"no icon files",
         Dictionary{{"CFBundleIcons", Dictionary{{"CFBundlePrimaryIcon", Dictionary{}}}}}},
        {"icon files not a list", infoWithIconFiles("AppIcon")},
        {"empty icon files", infoWithIconFiles(Array{})},
        {"first icon file not a name", infoWithIconFiles(Array{42, "AppIcon"})},
        {"empty name", infoWithIconFiles(Array{""})},
    };
    for (const auto& [name, info] : infos) {
        Runtime::current().platform().setMainBundleInfo(info);
        EXPECT_FALSE(tarvik_appIcon()) << name;
    }
    // The same bundle with the keys in place finds the icon.
    useIconFiles(Array{"AppIcon"});
    EXPECT_TRUE(tarvik_appIcon());
}

TEST_F(AppIcon, FileThatIsNotAnImageGivesNone) {
    useIconFiles(Array{"AppIcon"});
    EXPECT_FALSE(tarvik_appIcon());  // no file at all

    writeBundleFile("AppIcon@2x.png", "not a picture");
    writePngIcon("AppIcon.png", 20, 1.0);
    EXPECT_FALSE(tarvik_appIcon());  // the first file found is the icon, and it does not load
}

}  // namespace
}  // namespace tarvik
