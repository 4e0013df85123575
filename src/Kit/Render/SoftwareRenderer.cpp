#include "Kit/Render/SoftwareRenderer.h"

#include <algorithm>
#include <numbers>

namespace tarvik {

namespace {

// A rectangle with its corners rounded by `radius` (none for 0), as a new path.
void roundedRectangle(cairo_t* context, Rect rect, double radius) {
    double x = rect.origin.x, y = rect.origin.y;
    double width = rect.size.width, height = rect.size.height;
    radius = std::clamp(radius, 0.0, std::min(width, height) / 2);
    cairo_new_path(context);
    if (radius == 0) {
        cairo_rectangle(context, x, y, width, height);
        return;
    }
    constexpr double kQuarter = std::numbers::pi / 2;
    cairo_arc(context, x + width - radius, y + radius, radius, -kQuarter, 0);
    cairo_arc(context, x + width - radius, y + height - radius, radius, 0, kQuarter);
    cairo_arc(context, x + radius, y + height - radius, radius, kQuarter, 2 * kQuarter);
    cairo_arc(context, x + radius, y + radius, radius, 2 * kQuarter, 3 * kQuarter);
    cairo_close_path(context);
}

// The border lies inside the bounds, over the content and the subviews.
void drawBorder(cairo_t* context, const UIView& view) {
    const CALayerStyle& layer = view.layer();
    if (!layer.borderColor || layer.borderWidth <= 0) {
        return;
    }
    double half = layer.borderWidth / 2;
    Rect bounds = view.bounds();
    Rect inset{{bounds.origin.x + half, bounds.origin.y + half},
               {bounds.size.width - layer.borderWidth, bounds.size.height - layer.borderWidth}};
    roundedRectangle(context, inset, layer.cornerRadius - half);
    layer.borderColor->setAsSourceIn(context);
    cairo_set_line_width(context, layer.borderWidth);
    cairo_stroke(context);
}

}  // namespace

std::optional<Image> SoftwareRenderer::render(UIView& root, double scale) {
    Rect bounds = root.bounds();
    return Image::render(bounds.size.width, bounds.size.height, scale, Image::Transparent,
                         [&](cairo_t* context) {
                             // The root's frame places it; its bounds fill the bitmap.
                             Rect frame = root.frame();
                             cairo_translate(context, -frame.origin.x, -frame.origin.y);
                             drawView(context, root);
                         });
}

void SoftwareRenderer::drawView(cairo_t* context, UIView& view) {
    if (view.isHidden() || view.alpha() <= 0) {
        return;
    }
    Rect bounds = view.bounds();
    Point center = view.center();
    AffineTransform turn = view.transform();
    cairo_save(context);
    // A point of the bounds lies at centre + transform(point - bounds' middle).
    cairo_translate(context, center.x, center.y);
    cairo_matrix_t matrix{turn.a, turn.b, turn.c, turn.d, turn.tx, turn.ty};
    cairo_transform(context, &matrix);
    cairo_translate(context, -bounds.origin.x - bounds.size.width / 2,
                    -bounds.origin.y - bounds.size.height / 2);
    bool faded = view.alpha() < 1;
    if (faded) {
        cairo_push_group(context);
    }

    const CALayerStyle& layer = view.layer();
    if (std::optional<Color> background = view.backgroundColor()) {
        roundedRectangle(context, bounds, layer.cornerRadius);
        background->setAsSourceIn(context);
        cairo_fill(context);
    }
    cairo_save(context);
    roundedRectangle(context, bounds, view.clipsToBounds() ? layer.cornerRadius : 0);
    cairo_clip(context);  // a view's own drawing never leaves its bounds
    view.drawRect(context, bounds);
    cairo_restore(context);

    cairo_save(context);
    if (view.clipsToBounds()) {
        roundedRectangle(context, bounds, layer.cornerRadius);
        cairo_clip(context);
    }
    for (const std::shared_ptr<UIView>& subview : view.subviews()) {
        drawView(context, *subview);
    }
    cairo_restore(context);
    drawBorder(context, view);

    if (faded) {
        cairo_pop_group_to_source(context);
        cairo_paint_with_alpha(context, view.alpha());
    }
    cairo_restore(context);
}

}  // namespace tarvik
