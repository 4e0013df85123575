#pragma once

#include "Platform/Image.h"

#include <cairo.h>

#include <functional>
#include <memory>
#include <optional>

namespace tarvik {

// A transparent bitmap that its one owner draws into in place, where an Image's pixels never
// change once made: drawing a stroke costs the stroke, not a copy of every pixel.
// `snapshot` hands out the pixels as they stand, as an Image.
class CanvasBitmap {
  public:
    // None when no bitmap of that size can be made (as for Image::blank).
    static std::optional<CanvasBitmap> make(double width, double height, double scale);

    double width() const { return width_; }
    double height() const { return height_; }
    double scale() const { return scale_; }
    // Draws into the bitmap with a context whose units are points.
    void draw(const std::function<void(cairo_t*)>& draw);
    // The pixels as an image of their own.
    std::optional<Image> snapshot() const;
    // The surface, to draw the bitmap elsewhere as a Cairo source.
    cairo_surface_t* surface() const { return surface_.get(); }

  private:
    CanvasBitmap(std::shared_ptr<cairo_surface_t> surface, double width, double height,
                 double scale)
        : surface_(std::move(surface)), width_(width), height_(height), scale_(scale) {}

    std::shared_ptr<cairo_surface_t> surface_;
    double width_;
    double height_;
    double scale_;
};

}  // namespace tarvik
