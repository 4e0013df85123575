#include "Kit/Render/FrameRenderer.h"

#include "Kit/Render/SoftwareRenderer.h"
#include "Platform/Runtime.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tarvik {

namespace {

using RegionPointer = std::unique_ptr<cairo_region_t, decltype(&cairo_region_destroy)>;

bool sameMatrix(const cairo_matrix_t& a, const cairo_matrix_t& b) {
    return a.xx == b.xx && a.yx == b.yx && a.xy == b.xy && a.yy == b.yy && a.x0 == b.x0 &&
           a.y0 == b.y0;
}

// The box around `rect` carried by `matrix`.
Rect boundingBox(const cairo_matrix_t& matrix, Rect rect) {
    double xs[4] = {rect.origin.x, rect.origin.x + rect.size.width, rect.origin.x + rect.size.width,
                    rect.origin.x};
    double ys[4] = {rect.origin.y, rect.origin.y, rect.origin.y + rect.size.height,
                    rect.origin.y + rect.size.height};
    for (int i = 0; i < 4; ++i) {
        cairo_matrix_transform_point(&matrix, &xs[i], &ys[i]);
    }
    auto [left, right] = std::minmax_element(xs, xs + 4);
    auto [top, bottom] = std::minmax_element(ys, ys + 4);
    return {{*left, *top}, {*right - *left, *bottom - *top}};
}

// The common part of `rect` and `clip` (no clip: all of `rect`); none when they do not meet.
std::optional<Rect> intersect(Rect rect, std::optional<Rect> clip) {
    if (!clip) {
        return rect;
    }
    double left = std::max(rect.origin.x, clip->origin.x);
    double top = std::max(rect.origin.y, clip->origin.y);
    double right = std::min(rect.origin.x + rect.size.width, clip->origin.x + clip->size.width);
    double bottom = std::min(rect.origin.y + rect.size.height, clip->origin.y + clip->size.height);
    if (right <= left || bottom <= top) {
        return std::nullopt;
    }
    return Rect{{left, top}, {right - left, bottom - top}};
}

}  // namespace

struct FrameRenderer::Walk {
    Walk(double now, std::uint64_t frame) : now(now), frame(frame) {}

    double now;
    RegionPointer damage{cairo_region_create(), cairo_region_destroy};
    std::uint64_t frame;
    std::size_t order = 0;
    bool animating = false;
};

bool FrameRenderer::Look::operator==(const Look& other) const {
    return sameMatrix(toRoot, other.toRoot) && bounds == other.bounds &&
           backgroundColor == other.backgroundColor && layer == other.layer &&
           clipsToBounds == other.clipsToBounds && opacity == other.opacity && clip == other.clip &&
           order == other.order;
}

FrameRenderer::FrameRenderer(std::shared_ptr<UIView> root, double scale)
    : root_(std::move(root)), scale_(scale) {}

RenderedFrame FrameRenderer::renderFrame() {
    return renderFrame(Runtime::current().clock().mediaTime());
}

RenderedFrame FrameRenderer::renderFrame(double now) {
    root_->layoutIfNeeded();  // as the phone lays out before it draws
    Walk walk(now, ++frameCount_);
    if (prepareBitmap()) {
        damage(walk, Rect{{0, 0}, root_->bounds().size});
    }
    if (!bitmap_) {
        return {};
    }
    Rect frame = root_->frame();
    cairo_matrix_t rootToBitmap;
    cairo_matrix_init_translate(&rootToBitmap, -frame.origin.x, -frame.origin.y);
    visit(walk, *root_, rootToBitmap, std::nullopt, 1);
    // Views drawn last time and not now (removed, hidden or faded out) leave their area.
    for (auto it = drawn_.begin(); it != drawn_.end();) {
        if (it->second.frame == walk.frame) {
            ++it;
            continue;
        }
        damage(walk, it->second.area);
        it = drawn_.erase(it);
    }

    RenderedFrame rendered{{}, walk.animating};
    int count = cairo_region_num_rectangles(walk.damage.get());
    if (count == 0) {
        return rendered;
    }
    bitmap_->draw([&](cairo_t* context) {
        for (int i = 0; i < count; ++i) {
            cairo_rectangle_int_t pixels;
            cairo_region_get_rectangle(walk.damage.get(), i, &pixels);
            Rect area{{pixels.x / scale_, pixels.y / scale_},
                      {pixels.width / scale_, pixels.height / scale_}};
            rendered.damage.push_back(area);
            cairo_rectangle(context, area.origin.x, area.origin.y, area.size.width,
                            area.size.height);
        }
        cairo_clip(context);
        cairo_set_operator(context, CAIRO_OPERATOR_CLEAR);
        cairo_paint(context);
        cairo_set_operator(context, CAIRO_OPERATOR_OVER);
        SoftwareRenderer::drawRoot(context, *root_, now);
    });
    return rendered;
}

void FrameRenderer::visit(Walk& walk, UIView& view, const cairo_matrix_t& parentToRoot,
                          std::optional<Rect> clip, double opacity) {
    walk.animating = walk.animating || view.isAnimating(walk.now);
    std::optional<Rect> asked = view.takeNeedsDisplayRect();
    UIViewPresentation shown = view.presentationValues(walk.now);
    if (view.isHidden() || shown.alpha <= 0) {
        return;
    }
    // As the software renderer places a view: its centre, turned about it, its bounds' middle.
    cairo_matrix_t toRoot = parentToRoot;
    cairo_matrix_translate(&toRoot, shown.center.x, shown.center.y);
    AffineTransform turn = shown.transform;
    cairo_matrix_t turnMatrix{turn.a, turn.b, turn.c, turn.d, turn.tx, turn.ty};
    cairo_matrix_multiply(&toRoot, &turnMatrix, &toRoot);
    Rect bounds = shown.bounds;
    cairo_matrix_translate(&toRoot, -bounds.origin.x - bounds.size.width / 2,
                           -bounds.origin.y - bounds.size.height / 2);
    opacity *= shown.alpha;

    Look look{toRoot,  bounds, shown.backgroundColor, view.layer(), view.clipsToBounds(),
              opacity, clip,   walk.order++};
    Rect box = boundingBox(toRoot, bounds);
    std::optional<Rect> area = intersect(box, clip);
    if (asked) {
        damage(walk, intersect(boundingBox(toRoot, *asked), area));
    }
    auto [entry, isNew] = drawn_.try_emplace(&view);
    Drawn& drawn = entry->second;
    // An expired entry was another view that lived at the same address.
    bool changed = isNew || drawn.view.expired() || !(drawn.look == look);
    if (changed) {
        damage(walk, drawn.area);
        damage(walk, area);
    }
    drawn = {view.weak_from_this(), look, area, walk.frame};

    if (view.clipsToBounds() && !area) {
        return;  // its subviews cannot show; any drawn before leave as views that went
    }
    std::optional<Rect> subviewClip = view.clipsToBounds() ? area : clip;
    for (const std::shared_ptr<UIView>& subview : view.subviews()) {
        visit(walk, *subview, toRoot, subviewClip, opacity);
    }
}

void FrameRenderer::damage(Walk& walk, std::optional<Rect> area) {
    if (!area || !bitmap_) {
        return;
    }
    int width = cairo_image_surface_get_width(bitmap_->surface());
    int height = cairo_image_surface_get_height(bitmap_->surface());
    // Whole pixels that the area touches, within the bitmap.
    int left = std::clamp(static_cast<int>(std::floor(area->origin.x * scale_)), 0, width);
    int top = std::clamp(static_cast<int>(std::floor(area->origin.y * scale_)), 0, height);
    int right = std::clamp(
        static_cast<int>(std::ceil((area->origin.x + area->size.width) * scale_)), 0, width);
    int bottom = std::clamp(
        static_cast<int>(std::ceil((area->origin.y + area->size.height) * scale_)), 0, height);
    if (right <= left || bottom <= top) {
        return;
    }
    cairo_rectangle_int_t pixels{left, top, right - left, bottom - top};
    cairo_region_union_rectangle(walk.damage.get(), &pixels);
}

bool FrameRenderer::prepareBitmap() {
    Size size = root_->bounds().size;
    if (bitmap_ && bitmap_->width() == size.width && bitmap_->height() == size.height) {
        return false;
    }
    bitmap_ = CanvasBitmap::make(size.width, size.height, scale_);
    drawn_.clear();
    return true;
}

std::optional<Image> FrameRenderer::snapshot() const {
    return bitmap_ ? bitmap_->snapshot() : std::nullopt;
}

}  // namespace tarvik
