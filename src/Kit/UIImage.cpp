#include "Kit/UIImage.h"

#include <memory>

namespace tarvik {

namespace {

using PatternPointer = std::unique_ptr<cairo_pattern_t, decltype(&cairo_pattern_destroy)>;

// The bitmap as a source that covers `rect` of the context. Its edges are padded rather than
// faded, so that a stretched image (a one-point bar background) keeps its colour to the edge.
PatternPointer stretchedOver(const Image& bitmap, Rect rect) {
    PatternPointer pattern(cairo_pattern_create_for_surface(bitmap.surface()),
                           cairo_pattern_destroy);
    cairo_matrix_t matrix;
    cairo_matrix_init_scale(&matrix, bitmap.width() / rect.size.width,
                            bitmap.height() / rect.size.height);
    cairo_matrix_translate(&matrix, -rect.origin.x, -rect.origin.y);
    cairo_pattern_set_matrix(pattern.get(), &matrix);
    cairo_pattern_set_extend(pattern.get(), CAIRO_EXTEND_PAD);
    return pattern;
}

bool isDrawable(const Image& bitmap, Rect rect) {
    return bitmap.width() > 0 && bitmap.height() > 0 && rect.size.width > 0 && rect.size.height > 0;
}

}  // namespace

std::optional<UIImage> UIImage::imageNamed(const std::string& name, const Bundle& bundle) {
    std::optional<Image> bitmap = Image::imageNamed(name, bundle);
    if (!bitmap) {
        return std::nullopt;
    }
    return UIImage(*bitmap);
}

UIImage UIImage::imageWithRenderingMode(UIImageRenderingMode mode) const {
    UIImage copy = *this;
    copy.renderingMode_ = mode;
    return copy;
}

void UIImage::drawInRect(cairo_t* context, Rect rect, const Color& tintColor) const {
    if (!isDrawable(bitmap_, rect)) {
        return;
    }
    PatternPointer pattern = stretchedOver(bitmap_, rect);
    cairo_save(context);
    cairo_rectangle(context, rect.origin.x, rect.origin.y, rect.size.width, rect.size.height);
    if (renderingMode_ == UIImageRenderingModeAlwaysTemplate) {
        cairo_clip(context);
        tintColor.setAsSourceIn(context);
        cairo_mask(context, pattern.get());
    } else {
        cairo_set_source(context, pattern.get());
        cairo_fill(context);
    }
    cairo_restore(context);
}

}  // namespace tarvik
