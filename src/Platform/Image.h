#pragma once

#include "Platform/Bundle.h"
#include "Platform/Geometry.h"

#include <tarvik/Value.h>

#include <cairo.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tarvik {

// Straight (not premultiplied) red, green, blue and alpha, each from 0 to 1.
struct ColorComponents {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;
};

// A bitmap image: a size in points, a scale (pixels per point) and the pixels, held in a Cairo
// image surface: premultiplied ARGB32, or RGB24 for an opaque image (one without alpha).
//
// Images are values that are cheap to copy: copies share one surface, whose pixels never
// change once the image is made. New pixels come from `render`, which hands out the only
// drawing context a surface ever gets.
//
// The surface carries the scale as its device scale, so Cairo measures in points both when it
// draws into the surface and when it uses the surface as a source.
class Image {
  public:
    enum Opacity { Transparent, Opaque };

    // One pixel as stored: 8-bit components, colour premultiplied by alpha. Pixels of an
    // opaque image have alpha 255.
    struct Pixel {
        std::uint8_t alpha = 0;
        std::uint8_t red = 0;
        std::uint8_t green = 0;
        std::uint8_t blue = 0;
        bool operator==(const Pixel&) const = default;
    };

    // A new image of `width` × `height` points at `scale`, drawn by `draw` into a context whose
    // units are points. The context starts transparent, or black for an opaque image. None
    // when no bitmap of that size can be made (a negative or non-finite size, a scale that is
    // not positive, or more than 32767 pixels a side).
    static std::optional<Image> render(double width, double height, double scale, Opacity opacity,
                                       const std::function<void(cairo_t*)>& draw);
    // A new image with nothing drawn: transparent, or black when opaque.
    static std::optional<Image> blank(double width, double height, double scale, Opacity opacity);
    // A new image filled with `color`. In an opaque image the colour lies over black.
    static std::optional<Image> filled(double width, double height, double scale,
                                       ColorComponents color, Opacity opacity);
    // An image of the pixels of an ARGB32 or RGB24 image surface, which it shares: the
    // caller keeps its own reference but must not change the pixels afterwards. Sets the
    // surface's device scale to `scale`. None for another kind of surface or a bad scale.
    static std::optional<Image> fromSurface(cairo_surface_t* surface, double scale);

    // The image in a PNG or JPEG file, told apart by their contents, at `scale`. None when the
    // file cannot be read or holds neither a readable PNG nor a readable JPEG.
    static std::optional<Image> imageWithContentsOfFile(const std::string& path,
                                                        double scale = 1.0);
    // The image called `name` among the bundle's resources, the sharpest variant first:
    // "NAME@3x.png", "NAME@2x.png", "NAME.png" (NAME without a ".png" it may end with), then
    // NAME itself when it has another extension. The first file that exists is the image, with
    // the scale its "@2x" or "@3x" suffix says (1 without one); none when it does not load.
    static std::optional<Image> imageNamed(const std::string& name, const Bundle& bundle);

    double width() const { return width_; }
    double height() const { return height_; }
    double scale() const { return scale_; }
    bool opaque() const;
    int pixelWidth() const;
    int pixelHeight() const;

    // The pixel at column `x`, row `y`; throws std::out_of_range outside the image.
    Pixel pixelAt(int x, int y) const;
    // The smallest rectangle, in points, holding every pixel that is not fully transparent;
    // none when the whole image is. An opaque image's is its whole size.
    std::optional<Rect> visibleBounds() const;
    // The surface, to draw the image elsewhere (as a Cairo source) or to read its pixels.
    // Never draw into it: every copy of the image shares it.
    cairo_surface_t* surface() const { return surface_.get(); }

    // The image as a JPEG at `compressionQuality` (0 smallest, 1 best; values outside are
    // clamped). JPEG has no alpha, so a non-opaque image is laid over black. None for an
    // image without pixels.
    std::optional<Data> jpegRepresentation(double compressionQuality) const;
    // The image as a PNG: RGBA for an image with alpha, RGB for an opaque one. None for an
    // image without pixels.
    std::optional<Data> pngRepresentation() const;

  private:
    Image(std::shared_ptr<cairo_surface_t> surface, double width, double height, double scale)
        : surface_(std::move(surface)), width_(width), height_(height), scale_(scale) {}
    // The image of a surface it holds a reference to; none unless it is a usable ARGB32 or
    // RGB24 image surface.
    static std::optional<Image> sharing(std::shared_ptr<cairo_surface_t> surface, double scale);

    std::shared_ptr<cairo_surface_t> surface_;
    double width_;
    double height_;
    double scale_;
};

}  // namespace tarvik
