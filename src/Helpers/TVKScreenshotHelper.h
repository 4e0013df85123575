#pragma once

#include "Platform/Image.h"

#include <optional>

namespace tarvik {

// Takes the screenshot an issue report starts from.
class TVKScreenshotHelper {
  public:
    // The host's main window as an opaque image of its bounds in points at the main screen's
    // scale; none when the host has no window. With `shutterSound` the camera's shutter is
    // heard first, as the user's own screenshots sound. Main thread.
    static std::optional<Image> takeScreenshotWithShutterSound(bool shutterSound);
};

}  // namespace tarvik
