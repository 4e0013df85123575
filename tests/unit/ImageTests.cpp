#include "Helpers/UIApplication+Tarvik.h"
#include "Platform/Image.h"
#include "Platform/Runtime.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

namespace tarvik {
namespace {

using testing::TestRuntime;
using testsupport::runCommand;
using testsupport::shellQuoted;
using testsupport::writeFile;
using Pixel = Image::Pixel;
namespace fs = std::filesystem;

struct Rgb {
    int red, green, blue;
};

void expectClose(const Rgb& seen, const Rgb& expected, int tolerance) {
    EXPECT_NEAR(seen.red, expected.red, tolerance);
    EXPECT_NEAR(seen.green, expected.green, tolerance);
    EXPECT_NEAR(seen.blue, expected.blue, tolerance);
}

Rgb rgbAt(const Image& image, int x, int y) {
    Pixel pixel = image.pixelAt(x, y);
    return {pixel.red, pixel.green, pixel.blue};
}

// A JPEG decoded by djpeg, libjpeg's own tool, into a binary PPM: "P6", width, height, maximum
// value, then RGB bytes. The PPM stays beside the JPEG.
struct Ppm {
    int width = 0;
    int height = 0;
    std::string pixels;

    Rgb at(int x, int y) const {
        size_t offset = (static_cast<size_t>(y) * width + x) * 3;
        return {static_cast<unsigned char>(pixels[offset]),
                static_cast<unsigned char>(pixels[offset + 1]),
                static_cast<unsigned char>(pixels[offset + 2])};
    }
};

Ppm decodeWithDjpeg(const std::string& jpegPath) {
    auto result = runCommand("djpeg -pnm -outfile " + shellQuoted(jpegPath + ".ppm") + " " +
                             shellQuoted(jpegPath));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    std::ifstream in(jpegPath + ".ppm", std::ios::binary);
    std::string magic;
    int maximum = 0;
    Ppm ppm;
    in >> magic >> ppm.width >> ppm.height >> maximum;
    in.get();  // the single whitespace byte before the pixels
    EXPECT_EQ(magic + " " + std::to_string(maximum), "P6 255");
    ppm.pixels.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    EXPECT_EQ(ppm.pixels.size(), static_cast<size_t>(ppm.width) * ppm.height * 3);
    return ppm;
}

// Four solid quarters, so that each quarter's centre lies far from any edge that JPEG blurs.
// Drawn in points at scale 2: 640 × 480 pixels.
const Rgb kQuarterColours[4] = {{220, 30, 40}, {20, 200, 60}, {30, 50, 210}, {240, 240, 240}};

Image quarteredScreenshot() {
    return *Image::render(320, 240, 2, Image::Opaque, [](cairo_t* context) {
        for (int quarter = 0; quarter < 4; ++quarter) {
            const Rgb& colour = kQuarterColours[quarter];
            cairo_set_source_rgb(context, colour.red / 255.0, colour.green / 255.0,
                                 colour.blue / 255.0);
            cairo_rectangle(context, 160.0 * (quarter % 2), 120.0 * (quarter / 2), 160, 120);
            cairo_fill(context);
        }
    });
}

// The SDK's JPEGs are checked by djpeg; djpeg's pixels, encoded again by cjpeg, check the SDK's
// decoder on a JPEG of another encoder.
TEST(ImageJpeg, ScreenshotRoundTripsThroughLibjpegsTools) {
    TestRuntime test;
    std::string path = test.root() + "/screenshot.jpg";
    writeFile(path, *quarteredScreenshot().jpegRepresentation(0.7));
    Ppm decoded = decodeWithDjpeg(path);
    ASSERT_EQ(decoded.width, 640);
    ASSERT_EQ(decoded.height, 480);

    std::string remade = test.root() + "/remade.jpg";
    auto result = runCommand("cjpeg -quality 95 -outfile " + shellQuoted(remade) + " " +
                             shellQuoted(path + ".ppm"));
    ASSERT_EQ(result.exitCode, 0) << result.output;
    std::optional<Image> loaded = Image::imageWithContentsOfFile(path, 2);
    std::optional<Image> loadedRemade = Image::imageWithContentsOfFile(remade, 2);
    ASSERT_TRUE(loaded && loadedRemade);
    EXPECT_TRUE(loaded->opaque());
    EXPECT_EQ(loaded->width(), 320);
    EXPECT_EQ(loaded->height(), 240);
    EXPECT_EQ(loaded->pixelWidth(), 640);
    for (int quarter = 0; quarter < 4; ++quarter) {
        SCOPED_TRACE("quarter " + std::to_string(quarter));
        int x = 160 + 320 * (quarter % 2);
        int y = 120 + 240 * (quarter / 2);
        expectClose(decoded.at(x, y), kQuarterColours[quarter], 8);
        expectClose(rgbAt(*loaded, x, y), decoded.at(x, y), 1);
        expectClose(rgbAt(*loadedRemade, x, y), decoded.at(x, y), 6);
    }
}

TEST(ImageJpeg, QualityChangesTheSizeAndIsClamped) {
    TestRuntime test;
    // Fine detail, so that the quality shows in the size.
    Image noisy = *Image::render(64, 64, 2, Image::Opaque, [](cairo_t* context) {
        for (int i = 0; i < 64; ++i) {
            cairo_set_source_rgb(context, (i * 37 % 64) / 63.0, (i * 11 % 64) / 63.0, i / 63.0);
            cairo_rectangle(context, i, 0, 0.5, 64);
            cairo_fill(context);
        }
    });
    Data low = *noisy.jpegRepresentation(0.1);
    EXPECT_LT(low.size(), noisy.jpegRepresentation(0.7)->size());
    EXPECT_LT(noisy.jpegRepresentation(0.7)->size(), noisy.jpegRepresentation(0.9)->size());
    EXPECT_EQ(*noisy.jpegRepresentation(1.5), *noisy.jpegRepresentation(1.0));
    EXPECT_EQ(*noisy.jpegRepresentation(-0.5), *noisy.jpegRepresentation(0.0));
    EXPECT_EQ(*noisy.jpegRepresentation(std::numeric_limits<double>::quiet_NaN()),
              *noisy.jpegRepresentation(0.0));
    EXPECT_NE(*noisy.jpegRepresentation(0.0), low);
}

TEST(ImageLoading, CorruptOrMissingFilesGiveNone) {
    TestRuntime test;
    Data jpeg = *quarteredScreenshot().jpegRepresentation(0.7);
    Data png = *quarteredScreenshot().pngRepresentation();
    const std::pair<const char*, Data> corrupt[] = {
        {"empty", {}},
        {"only the start marker", {0xff, 0xd8, 0xff}},
        {"header cut short", Data(jpeg.begin(), jpeg.begin() + 100)},
        {"png cut short", Data(png.begin(), png.begin() + png.size() / 2)},
        {"text", Data{'h', 'e', 'l', 'l', 'o'}},
    };
    for (const auto& [name, bytes] : corrupt) {
        writeFile(test.root() + "/corrupt", bytes);
        EXPECT_FALSE(Image::imageWithContentsOfFile(test.root() + "/corrupt")) << name;
    }
    EXPECT_FALSE(Image::imageWithContentsOfFile(test.root() + "/missing.jpg"));
    EXPECT_FALSE(Image::imageWithContentsOfFile(test.root()));
}

// PNG keeps straight alpha, yet premultiplied pixels read back exactly. The colour type in the
// PNG's header (byte 25) is RGBA for an image with alpha, RGB for an opaque one.
TEST(ImagePng, RoundTripKeepsThePixelsAndOpaqueImagesHaveNoAlpha) {
    TestRuntime test;
    for (Image::Opacity opacity : {Image::Transparent, Image::Opaque}) {
        SCOPED_TRACE(opacity == Image::Opaque ? "opaque" : "transparent");
        Image original = *Image::filled(8, 6, 2, {0.2, 0.4, 0.6, 0.5}, opacity);
        Data png = *original.pngRepresentation();
        ASSERT_GT(png.size(), 25u);
        EXPECT_EQ(png[25], opacity == Image::Opaque ? 2 : 6);
        std::string path = test.root() + "/image.png";
        writeFile(path, png);
        std::optional<Image> loaded = Image::imageWithContentsOfFile(path, 2);
        ASSERT_TRUE(loaded);
        EXPECT_EQ(loaded->opaque(), opacity == Image::Opaque);
        EXPECT_EQ(loaded->width(), 8);
        EXPECT_EQ(loaded->pixelAt(15, 11), original.pixelAt(15, 11));
    }
}

// Points times scale, rounded up to whole pixels; a product a rounding error above a whole
// number (0.07 × 100) counts as that number.
TEST(ImageSize, PixelsArePointsTimesScaleRoundedUpWithinCairosLimit) {
    TestRuntime test;
    struct Case {
        double points, scale;
        int pixels;
    };
    for (Case c : {Case{320, 2, 640}, Case{10.5, 1, 11}, Case{10.25, 2, 21}, Case{0.07, 100, 7},
                   Case{100.0 / 3, 3, 100}, Case{0, 3, 0}, Case{16383, 2, 32766}}) {
        SCOPED_TRACE(std::to_string(c.points) + " at " + std::to_string(c.scale));
        std::optional<Image> image = Image::blank(c.points, 1, c.scale, Image::Transparent);
        ASSERT_TRUE(image);
        EXPECT_EQ(image->pixelWidth(), c.pixels);
    }
    double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(Image::blank(-1, 10, 1, Image::Transparent));
    EXPECT_FALSE(Image::blank(10, nan, 1, Image::Transparent));
    EXPECT_FALSE(Image::blank(10, 10, 0, Image::Transparent));
    EXPECT_FALSE(Image::blank(20000, 10, 2, Image::Opaque));

    // An image without pixels has no encodings.
    for (auto [width, height] : {std::pair{0.0, 10.0}, {10.0, 0.0}}) {
        std::optional<Image> empty = Image::blank(width, height, 2, Image::Transparent);
        ASSERT_TRUE(empty);
        EXPECT_FALSE(empty->jpegRepresentation(0.7));
        EXPECT_FALSE(empty->pngRepresentation());
    }
}

TEST(ImagePixels, FillsAreStoredPremultipliedOverBlackWhenOpaque) {
    TestRuntime test;
    ColorComponents halfRed{1, 0, 0, 0.5};
    EXPECT_EQ(Image::filled(2, 2, 1, halfRed, Image::Transparent)->pixelAt(1, 1),
              (Pixel{128, 128, 0, 0}));
    EXPECT_EQ(Image::filled(2, 2, 1, halfRed, Image::Opaque)->pixelAt(1, 1),
              (Pixel{255, 128, 0, 0}));
    EXPECT_EQ(Image::blank(2, 2, 1, Image::Transparent)->pixelAt(0, 0), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(Image::blank(2, 2, 1, Image::Opaque)->pixelAt(0, 0), (Pixel{255, 0, 0, 0}));
    EXPECT_THROW(Image::blank(2, 2, 1, Image::Opaque)->pixelAt(2, 0), std::out_of_range);
    EXPECT_THROW(Image::blank(2, 2, 1, Image::Opaque)->pixelAt(0, -1), std::out_of_range);
}

// ----------------------------------------------------------------------------------------------

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

    void useInfo(Dictionary info) { Runtime::current().platform().setMainBundleInfo(info); }

    // A square PNG of `pixels` pixels a side, its red component `red` (0 to 1).
    void writePngIcon(const std::string& fileName, int pixels, double red) {
        writeFile(
            bundleFolder() + "/" + fileName,
            *Image::filled(pixels, pixels, 1, {red, 0, 0, 1}, Image::Opaque)->pngRepresentation());
    }

    TestRuntime test;
};

// The first icon file names the icon (".png" may end its name); its sharpest variant is loaded
// at the scale of its suffix.
TEST_F(AppIcon, SharpestVariantOfTheFirstIconFileWins) {
    useInfo(infoWithIconFiles(Array{"Icon.png", "Other"}));
    writePngIcon("Other@3x.png", 90, 1.0);
    auto variant = [](int scale) {
        return scale == 1 ? "Icon.png" : "Icon@" + std::to_string(scale) + "x.png";
    };
    for (int scale : {1, 2, 3}) {
        writePngIcon(variant(scale), 30 * scale, 0.2 * scale);
    }
    for (int scale : {3, 2, 1}) {
        SCOPED_TRACE(variant(scale));
        std::optional<Image> icon = tarvik_appIcon();
        ASSERT_TRUE(icon);
        EXPECT_EQ(icon->scale(), scale);
        EXPECT_EQ(icon->width(), 30);
        EXPECT_EQ(icon->height(), 30);
        EXPECT_EQ(icon->pixelWidth(), 30 * scale);
        EXPECT_EQ(icon->pixelAt(0, 0).red, 51 * scale);  // 0.2 × scale of 255
        fs::remove(bundleFolder() + "/" + variant(scale));
    }
    EXPECT_FALSE(tarvik_appIcon());
}

TEST_F(AppIcon, MissingOrMistypedKeysOrFilesGiveNone) {
    writePngIcon("AppIcon@2x.png", 40, 1.0);
    const std::pair<const char*, Dictionary> infos[] = {
        {"no icons", Dictionary{{"CFBundleName", "Host"}}},
        {"icons not a dictionary", Dictionary{{"CFBundleIcons", "AppIcon"}}},
        {"primary icon not a dictionary",
         Dictionary{{"CFBundleIcons", Dictionary{{"CFBundlePrimaryIcon", "AppIcon"}}}}},
        {"icon files not a list", infoWithIconFiles("AppIcon")},
        {"empty icon files", infoWithIconFiles(Array{})},
        {"first icon file not a name", infoWithIconFiles(Array{42, "AppIcon"})},
        {"empty name", infoWithIconFiles(Array{""})},
        {"no such file", infoWithIconFiles(Array{"Missing"})},
    };
    for (const auto& [name, info] : infos) {
        useInfo(info);
        EXPECT_FALSE(tarvik_appIcon()) << name;
    }
    // The same bundle with the keys in place finds the icon...
    useInfo(infoWithIconFiles(Array{"AppIcon"}));
    EXPECT_TRUE(tarvik_appIcon());
    // ...but the first file found is the icon, even when it does not load.
    writeFile(bundleFolder() + "/AppIcon@3x.png", "not a picture");
    EXPECT_FALSE(tarvik_appIcon());
}

}  // namespace
}  // namespace tarvik
