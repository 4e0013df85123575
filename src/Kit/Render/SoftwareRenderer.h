#pragma once

#include "Kit/UIView.h"
#include "Platform/Image.h"

#include <optional>

namespace tarvik {

// Draws a tree of views into a bitmap with Cairo: each view's background, its own content
// (`drawRect`), its subviews in stacking order and its border, shaped by its corner radius,
// turned by its transform, clipped where it clips and faded by its alpha as one group.
class SoftwareRenderer {
  public:
    // The whole of `root` (its bounds) at `scale` pixels per point; none when no bitmap of
    // that size can be made.
    static std::optional<Image> render(UIView& root, double scale);

    // Draws `view` in its superview's coordinates (or the context's, for a root).
    static void drawView(cairo_t* context, UIView& view);
};

}  // namespace tarvik
