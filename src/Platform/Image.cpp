#include "Platform/Image.h"

#include "Platform/JpegCodec.h"
#include "Platform/PathUtilities.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace tarvik {
namespace {

using SurfacePointer = std::shared_ptr<cairo_surface_t>;

SurfacePointer owning(cairo_surface_t* surface) {
    return SurfacePointer(surface, cairo_surface_destroy);
}

// Cairo's largest image surface side.
constexpr double kMaxPixelsPerSide = 32767;

bool isUsableScale(double scale) {
    return std::isfinite(scale) && scale > 0;
}

// Points times scale, rounded up to whole pixels. A product within a millionth of a whole
// number counts as that number, so that 0.07 points at 100x (7.000000000000001) is 7 pixels and
// not 8.
std::optional<int> pixelCount(double points, double scale) {
    double exact = points * scale;
    if (!std::isfinite(exact) || exact < 0 || exact > kMaxPixelsPerSide) {
        return std::nullopt;
    }
    return static_cast<int>(std::max(0.0, std::ceil(exact - 1e-6)));
}

// libjpeg's quality runs from 1 to 100; anything at or below 0 (or not a number) is its
// lowest, anything at or above 1 its highest.
int libjpegQuality(double compressionQuality) {
    double clamped = compressionQuality > 0 ? std::min(compressionQuality, 1.0) : 0.0;
    return std::max(1, static_cast<int>(std::lround(clamped * 100)));
}

std::optional<Data> readFile(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        return std::nullopt;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    try {
        return Data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    } catch (const std::ios_base::failure&) {
        return std::nullopt;  // the file could not be read to its end
    }
}

bool startsWith(const Data& bytes, std::initializer_list<std::uint8_t> prefix) {
    return bytes.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), bytes.begin());
}

struct ReadCursor {
    const Data* bytes;
    std::size_t offset = 0;
};

cairo_status_t readFromCursor(void* closure, unsigned char* destination, unsigned int length) {
    auto* cursor = static_cast<ReadCursor*>(closure);
    if (cursor->bytes->size() - cursor->offset < length) {
        return CAIRO_STATUS_READ_ERROR;
    }
    std::memcpy(destination, cursor->bytes->data() + cursor->offset, length);
    cursor->offset += length;
    return CAIRO_STATUS_SUCCESS;
}

SurfacePointer decodePng(const Data& bytes) {
    ReadCursor cursor{&bytes};
    SurfacePointer surface =
        owning(cairo_image_surface_create_from_png_stream(readFromCursor, &cursor));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        return nullptr;
    }
    return surface;
}

// An exception must not unwind through Cairo's C frames: running out of memory becomes a
// write error instead.
cairo_status_t appendToData(void* closure, const unsigned char* bytes, unsigned int length) {
    try {
        auto* output = static_cast<Data*>(closure);
        output->insert(output->end(), bytes, bytes + length);
        return CAIRO_STATUS_SUCCESS;
    } catch (const std::bad_alloc&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
}

// "Icon@2x.png" -> 2; "Icon.png" -> 1.
double scaleOfFileName(const std::string& fileName) {
    std::string stem = fileName.substr(0, fileName.size() - pathExtension(fileName).size());
    if (!stem.empty() && stem.back() == '.') {
        stem.pop_back();
    }
    for (int scale : {2, 3}) {
        std::string suffix = "@" + std::to_string(scale) + "x";
        if (stem.size() > suffix.size() && stem.ends_with(suffix)) {
            return scale;
        }
    }
    return 1;
}

// The files a named-image lookup tries, sharpest first.
std::vector<std::string> candidateFileNames(const std::string& name) {
    std::string extension = pathExtension(name);
    std::string stem = extension == "png" ? name.substr(0, name.size() - 4) : name;
    std::vector<std::string> names = {stem + "@3x.png", stem + "@2x.png", stem + ".png"};
    if (!extension.empty() && extension != "png") {
        names.push_back(name);
    }
    return names;
}

}  // namespace

std::optional<Image> Image::render(double width, double height, double scale, Opacity opacity,
                                   const std::function<void(cairo_t*)>& draw) {
    if (!isUsableScale(scale)) {
        return std::nullopt;
    }
    std::optional<int> pixelWidth = pixelCount(width, scale);
    std::optional<int> pixelHeight = pixelCount(height, scale);
    if (!pixelWidth || !pixelHeight) {
        return std::nullopt;
    }
    // A new image surface is all zeros: transparent in ARGB32, black in RGB24.
    SurfacePointer surface = owning(cairo_image_surface_create(
        opacity == Opaque ? CAIRO_FORMAT_RGB24 : CAIRO_FORMAT_ARGB32, *pixelWidth, *pixelHeight));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        return std::nullopt;
    }
    cairo_surface_set_device_scale(surface.get(), scale, scale);
    {
        std::unique_ptr<cairo_t, decltype(&cairo_destroy)> context(cairo_create(surface.get()),
                                                                   cairo_destroy);
        draw(context.get());
    }
    cairo_surface_flush(surface.get());
    return Image(std::move(surface), width, height, scale);
}

std::optional<Image> Image::blank(double width, double height, double scale, Opacity opacity) {
    return render(width, height, scale, opacity, [](cairo_t*) {});
}

std::optional<Image> Image::filled(double width, double height, double scale, ColorComponents color,
                                   Opacity opacity) {
    return render(width, height, scale, opacity, [&](cairo_t* context) {
        cairo_set_source_rgba(context, color.red, color.green, color.blue, color.alpha);
        cairo_paint(context);
    });
}

std::optional<Image> Image::fromSurface(cairo_surface_t* surface, double scale) {
    if (surface == nullptr) {
        return std::nullopt;
    }
    return sharing(owning(cairo_surface_reference(surface)), scale);
}

std::optional<Image> Image::sharing(std::shared_ptr<cairo_surface_t> surface, double scale) {
    if (!surface || !isUsableScale(scale) ||
        cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS ||
        cairo_surface_get_type(surface.get()) != CAIRO_SURFACE_TYPE_IMAGE) {
        return std::nullopt;
    }
    cairo_format_t format = cairo_image_surface_get_format(surface.get());
    if (format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24) {
        return std::nullopt;
    }
    cairo_surface_flush(surface.get());
    cairo_surface_set_device_scale(surface.get(), scale, scale);
    double width = cairo_image_surface_get_width(surface.get()) / scale;
    double height = cairo_image_surface_get_height(surface.get()) / scale;
    return Image(std::move(surface), width, height, scale);
}

std::optional<Image> Image::imageWithContentsOfFile(const std::string& path, double scale) {
    std::optional<Data> bytes = readFile(path);
    if (!bytes) {
        return std::nullopt;
    }
    if (startsWith(*bytes, {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'})) {
        return sharing(decodePng(*bytes), scale);
    }
    if (startsWith(*bytes, {0xff, 0xd8, 0xff})) {
        return sharing(jpeg::decode(bytes->data(), bytes->size()), scale);
    }
    return std::nullopt;
}

std::optional<Image> Image::imageNamed(const std::string& name, const Bundle& bundle) {
    if (name.empty()) {
        return std::nullopt;
    }
    for (const std::string& fileName : candidateFileNames(name)) {
        std::string path = appendingPathComponent(bundle.resourcePath(), fileName);
        std::error_code error;
        if (std::filesystem::is_regular_file(path, error)) {
            // The first file found is the image, even when it does not load.
            return imageWithContentsOfFile(path, scaleOfFileName(fileName));
        }
    }
    return std::nullopt;
}

bool Image::opaque() const {
    return cairo_image_surface_get_format(surface_.get()) == CAIRO_FORMAT_RGB24;
}

int Image::pixelWidth() const {
    return cairo_image_surface_get_width(surface_.get());
}

int Image::pixelHeight() const {
    return cairo_image_surface_get_height(surface_.get());
}

std::optional<Rect> Image::visibleBounds() const {
    int width = pixelWidth();
    int height = pixelHeight();
    if (opaque()) {
        return Rect{{0, 0}, {width_, height_}};
    }
    const unsigned char* data = cairo_image_surface_get_data(surface_.get());
    std::size_t stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface_.get()));
    // Premultiplied, a fully transparent pixel is the word 0 whatever its colour was.
    auto word = [&](int x, int y) {
        std::uint32_t value = 0;
        std::memcpy(&value, data + static_cast<std::size_t>(y) * stride + x * 4u, sizeof value);
        return value;
    };
    int left = width, right = -1, top = -1, bottom = -1;
    for (int y = 0; y < height; ++y) {
        int x = 0;
        while (x < width && word(x, y) == 0) {
            ++x;
        }
        if (x == width) {
            continue;
        }
        top = top < 0 ? y : top;
        bottom = y;
        left = std::min(left, x);
        int last = width - 1;
        while (word(last, y) == 0) {
            --last;
        }
        right = std::max(right, last);
    }
    if (top < 0) {
        return std::nullopt;
    }
    return Rect{{left / scale_, top / scale_},
                {(right + 1 - left) / scale_, (bottom + 1 - top) / scale_}};
}

Image::Pixel Image::pixelAt(int x, int y) const {
    if (x < 0 || y < 0 || x >= pixelWidth() || y >= pixelHeight()) {
        throw std::out_of_range("pixel outside the image");
    }
    const unsigned char* row =
        cairo_image_surface_get_data(surface_.get()) +
        static_cast<std::size_t>(y) * cairo_image_surface_get_stride(surface_.get());
    std::uint32_t word = 0;
    std::memcpy(&word, row + static_cast<std::size_t>(x) * 4, sizeof word);
    // The high byte of an RGB24 pixel is unused and may hold anything.
    return Pixel{opaque() ? std::uint8_t{0xff} : static_cast<std::uint8_t>(word >> 24),
                 static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 8),
                 static_cast<std::uint8_t>(word)};
}

std::optional<Data> Image::jpegRepresentation(double compressionQuality) const {
    return jpeg::encode(surface_.get(), libjpegQuality(compressionQuality));
}

std::optional<Data> Image::pngRepresentation() const {
    if (pixelWidth() == 0 || pixelHeight() == 0) {
        return std::nullopt;
    }
    Data output;
    if (cairo_surface_write_to_png_stream(surface_.get(), appendToData, &output) !=
        CAIRO_STATUS_SUCCESS) {
        return std::nullopt;
    }
    return output;
}

}  // namespace tarvik
