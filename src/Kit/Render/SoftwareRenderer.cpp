#include "Kit/Render/SoftwareRenderer.h"

#include "Kit/UIApplication.h"
#include "Kit/UIScreen.h"
#include "Platform/Runtime.h"

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
void drawBorder(cairo_t* context, const UIView& view, Rect bounds) {
    const CALayerStyle& layer = view.layer();
    if (!layer.borderColor || layer.borderWidth <= 0) {
        return;
    }
    double half = layer.borderWidth / 2;
    Rect inset{{bounds.origin.x + half, bounds.origin.y + half},
               {bounds.size.width - layer.borderWidth, bounds.size.height - layer.borderWidth}};
    roundedRectangle(context, inset, layer.cornerRadius - half);
    layer.borderColor->setAsSourceIn(context);
    cairo_set_line_width(context, layer.borderWidth);
    cairo_stroke(context);
}

// Whether `bounds` (in the context's user space) lies wholly outside the part that the context
// may still change.
bool outsideClip(cairo_t* context, Rect bounds) {
    double left, top, right, bottom;
    cairo_clip_extents(context, &left, &top, &right, &bottom);
    return bounds.origin.x >= right || bounds.origin.x + bounds.size.width <= left ||
           bounds.origin.y >= bottom || bounds.origin.y + bounds.size.height <= top;
}

}  // namespace

std::optional<Image> SoftwareRenderer::render(UIView& root, double scale) {
    root.layoutIfNeeded();  // as the phone lays out before it draws
    Rect bounds = root.bounds();
    double now = Runtime::current().clock().mediaTime();
    return Image::render(bounds.size.width, bounds.size.height, scale, Image::Transparent,
                         [&](cairo_t* context) { drawRoot(context, root, now); });
}

std::optional<Image> SoftwareRenderer::renderScreen(double scale,
                                                    const std::optional<Image>& hostWindow) {
    std::vector<std::shared_ptr<UIWindow>> windows = UIApplication::sharedApplication().windows();
    for (const std::shared_ptr<UIWindow>& window : windows) {
        window->layoutIfNeeded();
    }
    Size screen = UIScreen::mainScreen().bounds().size;
    double now = Runtime::current().clock().mediaTime();
    return Image::render(screen.width, screen.height, scale, Image::Opaque, [&](cairo_t* context) {
        cairo_set_source_rgb(context, 1, 1, 1);
        cairo_paint(context);
        if (hostWindow) {
            cairo_set_source_surface(context, hostWindow->surface(), 0, 0);
            cairo_paint(context);
        }
        for (const std::shared_ptr<UIWindow>& window : windows) {
            cairo_save(context);
            drawView(context, *window, now);
            cairo_restore(context);
        }
    });
}

void SoftwareRenderer::drawRoot(cairo_t* context, UIView& root, double now) {
    // The root's frame (as the model has it) places it; its bounds fill the bitmap.
    Rect frame = root.frame();
    cairo_translate(context, -frame.origin.x, -frame.origin.y);
    drawView(context, root, now);
}

void SoftwareRenderer::drawView(cairo_t* context, UIView& view, double now) {
    UIViewPresentation shown = view.presentationValues(now);
    if (view.isHidden() || shown.alpha <= 0) {
        return;
    }
    Rect bounds = shown.bounds;
    Point center = shown.center;
    AffineTransform turn = shown.transform;
    cairo_save(context);
    // A point of the bounds lies at centre + transform(point - bounds' middle).
    cairo_translate(context, center.x, center.y);
    cairo_matrix_t matrix{turn.a, turn.b, turn.c, turn.d, turn.tx, turn.ty};
    cairo_transform(context, &matrix);
    cairo_translate(context, -bounds.origin.x - bounds.size.width / 2,
                    -bounds.origin.y - bounds.size.height / 2);
    // A view's own drawing never leaves its bounds: one wholly outside the clip (the damaged
    // part of a frame) is not drawn, and neither are its subviews when it clips them.
    bool outside = outsideClip(context, bounds);
    if (outside && view.clipsToBounds()) {
        cairo_restore(context);
        return;
    }
    bool faded = shown.alpha < 1;
    if (faded) {
        cairo_push_group(context);
    }

    const CALayerStyle& layer = view.layer();
    if (shown.backgroundColor && !outside) {
        roundedRectangle(context, bounds, layer.cornerRadius);
        shown.backgroundColor->setAsSourceIn(context);
        cairo_fill(context);
    }
    if (!outside) {
        cairo_save(context);
        roundedRectangle(context, bounds, view.clipsToBounds() ? layer.cornerRadius : 0);
        cairo_clip(context);
        view.drawRect(context, bounds);
        cairo_restore(context);
    }

    cairo_save(context);
    if (view.clipsToBounds()) {
        roundedRectangle(context, bounds, layer.cornerRadius);
        cairo_clip(context);
    }
    for (const std::shared_ptr<UIView>& subview : view.subviews()) {
        drawView(context, *subview, now);
    }
    cairo_restore(context);
    if (!outside) {
        drawBorder(context, view, bounds);
    }

    if (faded) {
        cairo_pop_group_to_source(context);
        cairo_paint_with_alpha(context, shown.alpha);
    }
    cairo_restore(context);
}

}  // namespace tarvik
