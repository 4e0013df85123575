#include "Helpers/TVKScreenshotHelper.h"

#include "Platform/Runtime.h"

namespace tarvik {

std::optional<Image> TVKScreenshotHelper::takeScreenshotWithShutterSound(bool shutterSound) {
    Platform& platform = Runtime::current().platform();
    if (shutterSound) {
        platform.sounds().playSystemSound(kCameraShutterSystemSound);
    }
    std::optional<Image> window = platform.hostWindow().snapshot(platform.screen().scale());
    if (!window || window->opaque()) {
        return window;
    }
    // Whatever the window leaves transparent comes out black, as in any opaque bitmap.
    return Image::render(window->width(), window->height(), window->scale(), Image::Opaque,
                         [&](cairo_t* context) {
                             cairo_set_source_surface(context, window->surface(), 0, 0);
                             cairo_paint(context);
                         });
}

}  // namespace tarvik
