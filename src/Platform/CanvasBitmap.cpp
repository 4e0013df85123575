#include "Platform/CanvasBitmap.h"

namespace tarvik {

std::optional<CanvasBitmap> CanvasBitmap::make(double width, double height, double scale) {
    // An image of the size says whether the size and scale can be a bitmap, and of how many
    // pixels.
    std::optional<Image> shape = Image::blank(width, height, scale, Image::Transparent);
    if (!shape) {
        return std::nullopt;
    }
    std::shared_ptr<cairo_surface_t> surface(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, shape->pixelWidth(), shape->pixelHeight()),
        cairo_surface_destroy);
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        return std::nullopt;
    }
    cairo_surface_set_device_scale(surface.get(), scale, scale);
    return CanvasBitmap(std::move(surface), width, height, scale);
}

void CanvasBitmap::draw(const std::function<void(cairo_t*)>& draw) {
    cairo_t* context = cairo_create(surface_.get());
    draw(context);
    cairo_destroy(context);
    cairo_surface_flush(surface_.get());
}

std::optional<Image> CanvasBitmap::snapshot() const {
    return Image::render(width_, height_, scale_, Image::Transparent, [&](cairo_t* context) {
        cairo_set_source_surface(context, surface_.get(), 0, 0);
        cairo_set_operator(context, CAIRO_OPERATOR_SOURCE);
        cairo_paint(context);
    });
}

}  // namespace tarvik
