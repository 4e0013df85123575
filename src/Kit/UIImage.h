#pragma once

#include "Kit/Color.h"
#include "Platform/Bundle.h"
#include "Platform/Geometry.h"
#include "Platform/Image.h"

#include <cairo.h>

#include <optional>
#include <string>

namespace tarvik {

// How a view draws an image: in its own colours or as a template, a shape whose alpha the
// view fills with its tint colour. Automatic lets the view decide: image views and custom
// buttons draw such images in their own colours, system buttons as templates.
enum UIImageRenderingMode : long {
    UIImageRenderingModeAutomatic = 0,
    UIImageRenderingModeAlwaysOriginal = 1,
    UIImageRenderingModeAlwaysTemplate = 2,
};

// An image as the toolkit shows it: a bitmap and its rendering mode. A value, cheap to copy:
// copies and images with another mode share the bitmap's pixels.
class UIImage {
  public:
    // Any bitmap is an image in the automatic mode.
    UIImage(Image bitmap) : bitmap_(std::move(bitmap)) {}

    // The image called `name` among the bundle's resources (see Image::imageNamed).
    static std::optional<UIImage> imageNamed(const std::string& name, const Bundle& bundle);

    const Image& bitmap() const { return bitmap_; }
    Size size() const { return {bitmap_.width(), bitmap_.height()}; }
    double scale() const { return bitmap_.scale(); }
    UIImageRenderingMode renderingMode() const { return renderingMode_; }
    UIImage imageWithRenderingMode(UIImageRenderingMode mode) const;

    // Draws the image stretched over `rect` of `context`: an always-template image as
    // `tintColor` through its alpha, any other in its own colours. Cairo resamples the pixels
    // once, at the context's own scale.
    void drawInRect(cairo_t* context, Rect rect, const Color& tintColor) const;

  private:
    Image bitmap_;
    UIImageRenderingMode renderingMode_ = UIImageRenderingModeAutomatic;
};

}  // namespace tarvik
