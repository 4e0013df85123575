#include "Platform/Image.h"
#include "Platform/PathUtilities.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvik {
namespace {

using testing::TestRuntime;

// The reporter's images with the size in points that the screens lay them out at: icons for
// the tool bars and the navigation bar, the tick laid over a 24-point colour disc, and the
// illustrations of the instruction card (70 high) and the confirmation card (82 high).
struct DesignedImage {
    std::string name;
    double width;
    double height;
};

const DesignedImage kReporterImages[] = {
    {"write", 24, 24},
    {"write active", 24, 24},
    {"erase", 24, 24},
    {"close", 24, 24},
    {"back", 24, 24},
    {"foward active", 24, 24},
    {"check white", 24, 24},
    {"shake device illustration", 120, 70},
    {"custom message illustration", 120, 70},
    {"sent illustration", 120, 82},
};

std::string fileName(const std::string& name, int scale) {
    return name + (scale == 1 ? "" : "@" + std::to_string(scale) + "x") + ".png";
}

TEST(Resources, ReporterImagesLoadFromTheSdkBundleAtEveryScaleAndSize) {
    TestRuntime test;
    Bundle bundle = test.platform().frameworkBundle();
    for (const DesignedImage& designed : kReporterImages) {
        SCOPED_TRACE(designed.name);
        std::optional<Image> sharpest = Image::imageNamed(designed.name, bundle);
        ASSERT_TRUE(sharpest);
        EXPECT_EQ(sharpest->scale(), 3);

        for (int scale : {1, 2, 3}) {
            std::string path =
                appendingPathComponent(bundle.resourcePath(), fileName(designed.name, scale));
            std::optional<Image> image = Image::imageWithContentsOfFile(path, scale);
            ASSERT_TRUE(image) << path;
            EXPECT_EQ(image->width(), designed.width) << path;
            EXPECT_EQ(image->height(), designed.height) << path;
            EXPECT_EQ(image->pixelWidth(), designed.width * scale) << path;
            ASSERT_FALSE(image->opaque()) << path;

            int transparent = 0;
            int opaque = 0;
            int notWhite = 0;
            for (int y = 0; y < image->pixelHeight(); ++y) {
                for (int x = 0; x < image->pixelWidth(); ++x) {
                    Image::Pixel pixel = image->pixelAt(x, y);
                    transparent += pixel.alpha == 0;
                    opaque += pixel.alpha == 255;
                    // Premultiplied white has every colour component equal to alpha.
                    notWhite += pixel.red != pixel.alpha || pixel.green != pixel.alpha ||
                                pixel.blue != pixel.alpha;
                }
            }
            EXPECT_GT(transparent, 0) << path;
            EXPECT_GT(opaque, 0) << path;
            if (designed.name == "check white") {
                EXPECT_EQ(notWhite, 0) << path;
            }
        }
    }
}

}  // namespace
}  // namespace tarvik
