#include "Platform/Image.h"
#include "Platform/Testing/TestRuntime.h"
#include "support/ExternalTools.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>

namespace tarvik {
namespace {

using testing::TestRuntime;
using testsupport::runCommand;
using testsupport::runPython;
using testsupport::shellQuoted;
using testsupport::writeFile;
using Pixel = Image::Pixel;

struct Rgb {
    int red, green, blue;
};

// Four solid regions, one per quarter, so that each quarter's centre lies far from any edge
// that JPEG blurs.
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

// The pixel-space centre of each quarter of a 640 × 480 image.
int quarterCentreX(int quarter) {
    return 160 + 320 * (quarter % 2);
}
int quarterCentreY(int quarter) {
    return 120 + 240 * (quarter / 2);
}

void expectClose(const Rgb& seen, const Rgb& expected, int tolerance, const std::string& where) {
    EXPECT_NEAR(seen.red, expected.red, tolerance) << where;
    EXPECT_NEAR(seen.green, expected.green, tolerance) << where;
    EXPECT_NEAR(seen.blue, expected.blue, tolerance) << where;
}

Rgb rgbOf(const Pixel& pixel) {
    return {pixel.red, pixel.green, pixel.blue};
}

// A binary PPM as djpeg writes it: "P6", width, height, maximum value, then RGB bytes.
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
    std::string ppmPath = jpegPath + ".ppm";
    auto result =
        runCommand("djpeg -pnm -outfile " + shellQuoted(ppmPath) + " " + shellQuoted(jpegPath));
    EXPECT_EQ(result.exitCode, 0) << result.output;
    std::ifstream in(ppmPath, std::ios::binary);
    std::string magic;
    int maximum = 0;
    Ppm ppm;
    in >> magic >> ppm.width >> ppm.height >> maximum;
    in.get();  // the single whitespace byte before the pixels
    EXPECT_EQ(magic, "P6");
    EXPECT_EQ(maximum, 255);
    ppm.pixels.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    EXPECT_EQ(ppm.pixels.size(), static_cast<size_t>(ppm.width) * ppm.height * 3);
    return ppm;
}

TEST(ImageJpeg, ScreenshotAtQualityPointSevenDecodesToItsPixels) {
    TestRuntime test;
    std::optional<Data> jpeg = quarteredScreenshot().jpegRepresentation(0.7);
    ASSERT_TRUE(jpeg);
    std::string path = test.root() + "/screenshot.jpg";
    writeFile(path, *jpeg);

    Ppm decoded = decodeWithDjpeg(path);
    ASSERT_EQ(decoded.width, 640);
    ASSERT_EQ(decoded.height, 480);
    for (int quarter = 0; quarter < 4; ++quarter) {
        expectClose(decoded.at(quarterCentreX(quarter), quarterCentreY(quarter)),
                    kQuarterColours[quarter], 8, "quarter " + std::to_string(quarter));
    }

    // The SDK's own decoder agrees, and gives an opaque image at the scale asked for.
    std::optional<Image> loaded = Image::imageWithContentsOfFile(path, 2);
    ASSERT_TRUE(loaded);
    EXPECT_TRUE(loaded->opaque());
    EXPECT_EQ(loaded->width(), 320);
    EXPECT_EQ(loaded->height(), 240);
    EXPECT_EQ(loaded->pixelWidth(), 640);
    for (int quarter = 0; quarter < 4; ++quarter) {
        int x = quarterCentreX(quarter), y = quarterCentreY(quarter);
        expectClose(rgbOf(loaded->pixelAt(x, y)), decoded.at(x, y), 1,
                    "quarter " + std::to_string(quarter));
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
    Data middle = *noisy.jpegRepresentation(0.7);
    Data high = *noisy.jpegRepresentation(0.9);
    EXPECT_LT(low.size(), middle.size());
    EXPECT_LT(middle.size(), high.size());

    EXPECT_EQ(*noisy.jpegRepresentation(1.5), *noisy.jpegRepresentation(1.0));
    EXPECT_EQ(*noisy.jpegRepresentation(-0.5), *noisy.jpegRepresentation(0.0));
    EXPECT_EQ(*noisy.jpegRepresentation(std::numeric_limits<double>::quiet_NaN()),
              *noisy.jpegRepresentation(0.0));
    EXPECT_NE(*noisy.jpegRepresentation(0.0), low);
}

TEST(ImageJpeg, TransparencyIsLaidOverBlack) {
    TestRuntime test;
    Image image = *Image::render(20, 10, 1, Image::Transparent, [](cairo_t* context) {
        cairo_set_source_rgba(context, 1, 1, 1, 0.5);
        cairo_rectangle(context, 0, 0, 10, 10);
        cairo_fill(context);
    });
    std::string path = test.root() + "/overBlack.jpg";
    writeFile(path, *image.jpegRepresentation(1.0));

    Ppm decoded = decodeWithDjpeg(path);
    ASSERT_EQ(decoded.width, 20);
    expectClose(decoded.at(4, 5), {128, 128, 128}, 3, "half-transparent white");
    expectClose(decoded.at(15, 5), {0, 0, 0}, 3, "fully transparent");
}

TEST(ImageEncoding, ImageWithoutPixelsGivesNone) {
    TestRuntime test;
    for (auto [width, height] : {std::pair{0.0, 0.0}, {10.0, 0.0}, {0.0, 10.0}}) {
        std::optional<Image> empty = Image::blank(width, height, 2, Image::Transparent);
        ASSERT_TRUE(empty);
        EXPECT_FALSE(empty->jpegRepresentation(0.7)) << width << " x " << height;
        EXPECT_FALSE(empty->pngRepresentation()) << width << " x " << height;
    }
}

TEST(ImageLoading, ReadsAJpegMadeByCjpeg) {
    TestRuntime test;
    // Left half orange, right half teal, as a PPM for cjpeg.
    std::string ppm = "P6\n64 32\n255\n";
    for (int y = 0; y < 32; ++y) {
        for (int x = 0; x < 64; ++x) {
            ppm += x < 32 ? std::string{char(250), char(140), char(20)}
                          : std::string{char(10), char(130), char(140)};
        }
    }
    std::string ppmPath = test.root() + "/source.ppm";
    std::string jpegPath = test.root() + "/made-by-cjpeg.jpg";
    std::ofstream(ppmPath, std::ios::binary) << ppm;
    auto result = runCommand("cjpeg -quality 95 -outfile " + shellQuoted(jpegPath) + " " +
                             shellQuoted(ppmPath));
    ASSERT_EQ(result.exitCode, 0) << result.output;

    std::optional<Image> loaded = Image::imageWithContentsOfFile(jpegPath, 2);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->pixelWidth(), 64);
    EXPECT_EQ(loaded->width(), 32);
    EXPECT_EQ(loaded->height(), 16);
    expectClose(rgbOf(loaded->pixelAt(10, 16)), {250, 140, 20}, 6, "left");
    expectClose(rgbOf(loaded->pixelAt(54, 16)), {10, 130, 140}, 6, "right");
}

TEST(ImageLoading, CorruptOrMissingFilesGiveNone) {
    TestRuntime test;
    Data jpeg = *quarteredScreenshot().jpegRepresentation(0.7);
    Data png = *quarteredScreenshot().pngRepresentation();

    Data zeroSizedFrame = jpeg;  // the frame header's height and width set to 0
    for (size_t i = 0; i + 8 < zeroSizedFrame.size(); ++i) {
        if (zeroSizedFrame[i] == 0xff && zeroSizedFrame[i + 1] == 0xc0) {
            std::fill(zeroSizedFrame.begin() + i + 5, zeroSizedFrame.begin() + i + 9, 0);
            break;
        }
    }
    Data garbageAfterMarker = {0xff, 0xd8, 0xff};
    for (int i = 0; i < 200; ++i) {
        garbageAfterMarker.push_back(static_cast<std::uint8_t>(i * 73 + 5));
    }
    const std::pair<const char*, Data> corrupt[] = {
        {"empty", {}},
        {"only the start marker", {0xff, 0xd8, 0xff}},
        {"garbage after the start marker", garbageAfterMarker},
        {"zero-sized frame", zeroSizedFrame},
        {"header cut short", Data(jpeg.begin(), jpeg.begin() + 100)},
        {"png cut short", Data(png.begin(), png.begin() + png.size() / 2)},
        {"text", Data{'h', 'e', 'l', 'l', 'o'}},
    };
    for (const auto& [name, bytes] : corrupt) {
        std::string path = test.root() + "/corrupt";
        writeFile(path, bytes);
        EXPECT_FALSE(Image::imageWithContentsOfFile(path)) << name;
    }
    EXPECT_FALSE(Image::imageWithContentsOfFile(test.root() + "/missing.jpg"));
    EXPECT_FALSE(Image::imageWithContentsOfFile(test.root()));
}

// Every premultiplied combination of alpha (the column) with many colour values (the row).
Image everyAlphaAndColour() {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 256, 256);
    unsigned char* data = cairo_image_surface_get_data(surface);
    int stride = cairo_image_surface_get_stride(surface);
    for (std::uint32_t y = 0; y < 256; ++y) {
        for (std::uint32_t alpha = 0; alpha < 256; ++alpha) {
            std::uint32_t red = std::min(y, alpha);
            std::uint32_t green = y * alpha / 255;
            std::uint32_t blue = alpha - red;
            std::uint32_t word = alpha << 24 | red << 16 | green << 8 | blue;
            std::memcpy(data + y * stride + alpha * 4, &word, 4);
        }
    }
    cairo_surface_mark_dirty(surface);
    std::optional<Image> image = Image::fromSurface(surface, 2);
    cairo_surface_destroy(surface);  // the image holds its own reference
    return *image;
}

TEST(ImagePng, RoundTripKeepsEveryPixelExactly) {
    TestRuntime test;
    Image original = everyAlphaAndColour();
    std::string path = test.root() + "/pixels.png";
    writeFile(path, *original.pngRepresentation());

    std::optional<Image> loaded = Image::imageWithContentsOfFile(path, 2);
    ASSERT_TRUE(loaded);
    EXPECT_FALSE(loaded->opaque());
    EXPECT_EQ(loaded->width(), 128);
    EXPECT_EQ(loaded->height(), 128);
    int differing = 0;
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x) {
            if (!(loaded->pixelAt(x, y) == original.pixelAt(x, y))) {
                ++differing;
            }
        }
    }
    EXPECT_EQ(differing, 0);
}

// Reads a PNG with Python's standard library alone: checks the signature and every chunk's CRC,
// inflates and unfilters the pixels, and prints "WIDTH HEIGHT COLOUR_TYPE", then the components
// of each pixel asked for as "x,y".
const char* kPythonPngReader = R"(
import struct, sys, zlib
data = open(sys.argv[1], 'rb').read()
assert data[:8] == b'\x89PNG\r\n\x1a\n', 'signature'
pos, idat = 8, b''
while pos < len(data):
    length, kind = struct.unpack('>I4s', data[pos:pos + 8])
    body = data[pos + 8:pos + 8 + length]
    assert zlib.crc32(kind + body) == struct.unpack('>I', data[pos + 8 + length:pos + 12 + length])[0]
    if kind == b'IHDR':
        width, height, depth, colour, _, _, interlace = struct.unpack('>IIBBBBB', body)
    elif kind == b'IDAT':
        idat += body
    pos += 12 + length
assert depth == 8 and interlace == 0
channels = {2: 3, 6: 4}[colour]
stride = width * channels
raw = zlib.decompress(idat)
assert len(raw) == height * (stride + 1)
rows, previous = [], bytearray(stride)
for y in range(height):
    kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
    for i in range(stride):
        a = line[i - channels] if i >= channels else 0
        b = previous[i]
        c = previous[i - channels] if i >= channels else 0
        if kind == 1: line[i] = (line[i] + a) & 255
        elif kind == 2: line[i] = (line[i] + b) & 255
        elif kind == 3: line[i] = (line[i] + (a + b) // 2) & 255
        elif kind == 4:
            p = a + b - c
            pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
            line[i] = (line[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
    rows.append(line)
    previous = line
print(width, height, colour)
for point in sys.argv[2:]:
    x, y = map(int, point.split(','))
    print(*rows[y][x * channels:(x + 1) * channels])
)";

std::vector<std::vector<int>> readPngWithPython(const std::string& path,
                                                const std::string& points) {
    auto result = runPython(kPythonPngReader, shellQuoted(path) + " " + points);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    std::vector<std::vector<int>> lines;
    std::istringstream text(result.output);
    for (std::string line; std::getline(text, line);) {
        std::istringstream numbers(line);
        lines.emplace_back(std::istream_iterator<int>(numbers), std::istream_iterator<int>());
    }
    return lines;
}

TEST(ImagePng, TransparentImageKeepsStraightAlphaForOtherReaders) {
    TestRuntime test;
    Image image = *Image::render(20, 10, 2, Image::Transparent, [](cairo_t* context) {
        cairo_set_source_rgba(context, 1, 0.5, 0, 0.5);
        cairo_rectangle(context, 0, 0, 10, 10);
        cairo_fill(context);
    });
    std::string path = test.root() + "/transparent.png";
    writeFile(path, *image.pngRepresentation());

    auto lines = readPngWithPython(path, "5,5 30,5");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], (std::vector<int>{40, 20, 6}));  // RGBA
    ASSERT_EQ(lines[1].size(), 4u);
    EXPECT_EQ(lines[1][0], 255);
    EXPECT_NEAR(lines[1][1], 128, 1);
    EXPECT_EQ(lines[1][2], 0);
    EXPECT_EQ(lines[1][3], 128);
    EXPECT_EQ(lines[2], (std::vector<int>{0, 0, 0, 0}));

    std::optional<Image> loaded = Image::imageWithContentsOfFile(path, 2);
    ASSERT_TRUE(loaded);
    EXPECT_FALSE(loaded->opaque());
    EXPECT_EQ(loaded->pixelAt(5, 5), image.pixelAt(5, 5));
}

TEST(ImagePng, OpaqueImageIsWrittenWithoutAlpha) {
    TestRuntime test;
    Image image = *Image::filled(8, 6, 1, {0.2, 0.4, 0.6, 1}, Image::Opaque);
    std::string path = test.root() + "/opaque.png";
    writeFile(path, *image.pngRepresentation());

    auto lines = readPngWithPython(path, "3,3");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], (std::vector<int>{8, 6, 2}));  // RGB
    EXPECT_EQ(lines[1], (std::vector<int>{51, 102, 153}));

    std::optional<Image> loaded = Image::imageWithContentsOfFile(path);
    ASSERT_TRUE(loaded);
    EXPECT_TRUE(loaded->opaque());
    EXPECT_EQ(loaded->pixelAt(3, 3), (Pixel{255, 51, 102, 153}));
}

TEST(ImageSize, PixelsArePointsTimesScaleRoundedUp) {
    TestRuntime test;
    struct Case {
        double points, scale;
        int pixels;
    };
    for (Case c : {Case{320, 2, 640}, Case{10.5, 1, 11}, Case{10.25, 2, 21}, Case{0.07, 100, 7},
                   Case{100.0 / 3, 3, 100}, Case{0, 3, 0}}) {
        std::optional<Image> image = Image::blank(c.points, 1, c.scale, Image::Transparent);
        ASSERT_TRUE(image) << c.points << " at " << c.scale;
        EXPECT_EQ(image->pixelWidth(), c.pixels) << c.points << " at " << c.scale;
        EXPECT_EQ(image->width(), c.points);
        EXPECT_EQ(image->scale(), c.scale);
    }
}

TEST(ImageSize, SizesNoBitmapCanHaveGiveNone) {
    TestRuntime test;
    double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(Image::blank(-1, 10, 1, Image::Transparent));
    EXPECT_FALSE(Image::blank(10, nan, 1, Image::Transparent));
    EXPECT_FALSE(Image::blank(10, 10, 0, Image::Transparent));
    EXPECT_FALSE(Image::blank(10, 10, -2, Image::Transparent));
    EXPECT_FALSE(Image::blank(20000, 10, 2, Image::Opaque));
    EXPECT_TRUE(Image::blank(16383, 1, 2, Image::Opaque));
}

TEST(ImagePixels, FillsAreStoredPremultiplied) {
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

TEST(ImagePixels, DrawingIsMeasuredInPoints) {
    TestRuntime test;
    Image image = *Image::render(10, 10, 3, Image::Transparent, [](cairo_t* context) {
        cairo_set_source_rgb(context, 0, 0, 1);
        cairo_rectangle(context, 0, 0, 5, 5);
        cairo_fill(context);
    });
    EXPECT_EQ(image.pixelAt(14, 14), (Pixel{255, 0, 0, 255}));
    EXPECT_EQ(image.pixelAt(15, 15), (Pixel{0, 0, 0, 0}));

    // As a source, a 3x image covers its size in points in a 1x drawing.
    Image copy = *Image::render(10, 10, 1, Image::Transparent, [&](cairo_t* context) {
        cairo_set_source_surface(context, image.surface(), 0, 0);
        cairo_paint(context);
    });
    EXPECT_EQ(copy.pixelAt(2, 2), (Pixel{255, 0, 0, 255}));
    EXPECT_EQ(copy.pixelAt(7, 7), (Pixel{0, 0, 0, 0}));
}

TEST(ImageSurface, OnlyColourImageSurfacesBecomeImages) {
    TestRuntime test;
    cairo_surface_t* rgb = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 30, 20);
    std::optional<Image> image = Image::fromSurface(rgb, 2);
    cairo_surface_destroy(rgb);
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->opaque());
    EXPECT_EQ(image->width(), 15);
    EXPECT_EQ(image->height(), 10);
    EXPECT_EQ(image->pixelAt(29, 19), (Pixel{255, 0, 0, 0}));

    cairo_surface_t* mask = cairo_image_surface_create(CAIRO_FORMAT_A8, 4, 4);
    EXPECT_FALSE(Image::fromSurface(mask, 1));
    cairo_surface_destroy(mask);
    EXPECT_FALSE(Image::fromSurface(nullptr, 1));
}

}  // namespace
}  // namespace tarvik
