#include "Helpers/UIImage+Tarvik.h"

#include "Platform/Runtime.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tarvik {

namespace {

// Every bitmap here starts transparent at the main screen's scale.
std::optional<Image> renderOnScreen(Size size, const std::function<void(cairo_t*)>& draw) {
    double scale = Runtime::current().platform().screen().scale();
    return Image::render(size.width, size.height, scale, Image::Transparent, draw);
}

// Draws `image` with its top left corner at (x, y) in the context's units. The image's
// surface carries its own scale, so an image of another scale still covers its size in points.
// Filling only the image's own rectangle with its edge pixels padded keeps a stretched
// image's border as solid as its inside, instead of fading into the transparency around it.
void drawAt(cairo_t* context, const Image& image, double x, double y) {
    cairo_set_source_surface(context, image.surface(), x, y);
    cairo_pattern_set_extend(cairo_get_source(context), CAIRO_EXTEND_PAD);
    cairo_rectangle(context, x, y, image.width(), image.height());
    cairo_fill(context);
}

Size sizeOf(const Image& image) {
    return {image.width(), image.height()};
}

}  // namespace

std::optional<Image> tarvik_imageWithColor(const Color& color) {
    return renderOnScreen({1, 1}, [&](cairo_t* context) {
        color.setAsSourceIn(context);
        cairo_rectangle(context, 0, 0, 1, 1);
        cairo_fill(context);
    });
}

std::optional<Image> tarvik_circleImageWithColor(const Color& color, double radius) {
    double diameter = radius;
    return renderOnScreen({diameter, diameter}, [&](cairo_t* context) {
        color.setAsSourceIn(context);
        cairo_arc(context, diameter / 2, diameter / 2, diameter / 2, 0, 2 * std::numbers::pi);
        cairo_fill(context);
    });
}

std::optional<Image> tarvik_addImage(const Image& image, const std::optional<Image>& other) {
    return renderOnScreen(sizeOf(image), [&](cairo_t* context) {
        drawAt(context, image, 0, 0);
        if (other) {
            drawAt(context, *other, 0, 0);
        }
    });
}

std::optional<Image> tarvik_ScaleToSize(const Image& image, Size size) {
    if (sizeOf(image) == size) {
        return image;
    }
    return renderOnScreen(size, [&](cairo_t* context) {
        // An image without area has nothing to stretch; the result stays transparent.
        if (image.width() <= 0 || image.height() <= 0) {
            return;
        }
        cairo_scale(context, size.width / image.width(), size.height / image.height());
        drawAt(context, image, 0, 0);
    });
}

std::optional<Image> tarvik_ImageByCombiningWithImage(const Image& image,
                                                      const std::optional<Image>& other) {
    // An absent image counts as 0 × 0, so it never widens the canvas.
    Size second = other ? sizeOf(*other) : Size{};
    Size canvas{std::max(image.width(), second.width), std::max(image.height(), second.height)};
    auto offset = [](double outer, double inner) { return std::round((outer - inner) / 2); };
    return renderOnScreen(canvas, [&](cairo_t* context) {
        drawAt(context, image, offset(canvas.width, image.width()),
               offset(canvas.height, image.height()));
        if (other) {
            drawAt(context, *other, offset(canvas.width, second.width),
                   offset(canvas.height, second.height));
        }
    });
}

std::optional<Image> tarvik_ImageByScalingAndCombiningImage(const Image& image,
                                                            const std::optional<Image>& other) {
    // Stretched to the screenshot's size, the drawing is centred at offset 0: it is drawn
    // stretched straight over the copy of the screenshot, and only around its ink, instead of
    // through a full-screen bitmap of its own. A report pays that on the main thread.
    std::optional<Rect> ink =
        other && other->width() > 0 && other->height() > 0 ? other->visibleBounds() : std::nullopt;
    return renderOnScreen(sizeOf(image), [&](cairo_t* context) {
        drawAt(context, image, 0, 0);
        if (!ink) {
            return;
        }
        cairo_scale(context, image.width() / other->width(), image.height() / other->height());
        // A pixel's worth around the ink, where the stretched drawing's filter still reaches.
        double margin = 2 / other->scale();
        cairo_rectangle(context, ink->origin.x - margin, ink->origin.y - margin,
                        ink->size.width + 2 * margin, ink->size.height + 2 * margin);
        cairo_clip(context);
        drawAt(context, *other, 0, 0);
    });
}

}  // namespace tarvik
