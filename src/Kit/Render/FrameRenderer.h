#pragma once

#include "Kit/UIView.h"
#include "Platform/CanvasBitmap.h"

#include <cairo.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace tarvik {

// One frame: the parts of the bitmap drawn again (pixel-aligned rectangles in the bitmap's
// points, which are the root's from the top left corner of its bounds; none when nothing
// changed), and whether an animation is still under way, so that
// whoever shows the frames knows to ask for another.
struct RenderedFrame {
    std::vector<Rect> damage;
    bool animating = false;
};

// The frames of one window: a bitmap of the root's bounds at `scale`, kept from frame to frame,
// of which each frame draws again only what changed since the last. A view's own drawing lies
// within its bounds (clipped by the ancestors that clip), its "area"; a frame repaints
//   - the parts views asked for with setNeedsDisplay / setNeedsDisplayInRect, and
//   - the old and the new area of each view whose rendered look changed: placement on the
//     screen (an animation's too), size, alpha down its ancestors, colours, border, clipping
//     or its place in the stacking order; of each view that appeared; of each that went.
// It clears those pixels and draws the tree clipped to them, skipping the views outside; the
// result is the pixels a full repaint would give.
class FrameRenderer {
  public:
    FrameRenderer(std::shared_ptr<UIView> root, double scale);

    // Brings the bitmap to the tree as rendered at media time `now` (the runtime's now when
    // left out). The first frame, and one after the root changed size, draws everything.
    RenderedFrame renderFrame(double now);
    RenderedFrame renderFrame();

    // The bitmap as it stands, to show; its device scale is `scale`.
    cairo_surface_t* surface() const { return bitmap_ ? bitmap_->surface() : nullptr; }
    std::optional<Image> snapshot() const;

  private:
    // What decides the pixels of a view's own drawing.
    struct Look {
        cairo_matrix_t toRoot;  // from the view's bounds to the root's points
        Rect bounds;
        std::optional<Color> backgroundColor;
        CALayerStyle layer;
        bool clipsToBounds;
        double opacity;  // its alpha times its ancestors'
        std::optional<Rect> clip;
        std::size_t order;  // its place among the views drawn, in stacking order
        bool operator==(const Look& other) const;
    };
    struct Drawn {
        std::weak_ptr<NSObject> view;
        Look look;
        std::optional<Rect> area;  // in the bitmap's points; none when none of it shows
        std::uint64_t frame = 0;   // the last frame that drew it
    };
    struct Walk;

    void visit(Walk& walk, UIView& view, const cairo_matrix_t& parentToRoot,
               std::optional<Rect> clip, double opacity);
    void damage(Walk& walk, std::optional<Rect> area);
    bool prepareBitmap();

    std::shared_ptr<UIView> root_;
    double scale_;
    std::optional<CanvasBitmap> bitmap_;
    std::unordered_map<const UIView*, Drawn> drawn_;
    std::uint64_t frameCount_ = 0;
};

}  // namespace tarvik
