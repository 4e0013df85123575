#pragma once

#include "Kit/UIView.h"
#include "Platform/Image.h"

#include <optional>

namespace tarvik {

// Draws a tree of views into a bitmap with Cairo: each view's background, its own content
// (`drawRect`), its subviews in stacking order and its border, shaped by its corner radius,
// turned by its transform, clipped where it clips and faded by its alpha as one group. Views
// are drawn as they are rendered at a media time, their animations included.
class SoftwareRenderer {
  public:
    // The whole of `root` (its bounds) at `scale` pixels per point, at the runtime's media
    // time; none when no bitmap of that size can be made.
    static std::optional<Image> render(UIView& root, double scale);
    // The main screen as the user sees it at `scale`: `hostWindow` (the application's own
    // window, if given) at the top left, then every window on screen, back to front. Opaque.
    static std::optional<Image> renderScreen(double scale, const std::optional<Image>& hostWindow);

    // Draws `root` into a context whose origin is the root's top left corner, as at media
    // time `now`. Only what lies in the context's clip is drawn.
    static void drawRoot(cairo_t* context, UIView& root, double now);
    // Draws `view` in its superview's coordinates (or the context's, for a root).
    static void drawView(cairo_t* context, UIView& view, double now);
};

}  // namespace tarvik
