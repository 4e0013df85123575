#pragma once

#include "Platform/Geometry.h"

namespace tarvik {

// The main screen as the reporter sees it: its bounds in points (origin at 0, 0) and its
// scale, the pixels per point of every bitmap the SDK draws "at the screen's scale".
// Answered at the moment of asking, from any thread.
class ScreenMetrics {
  public:
    virtual ~ScreenMetrics() = default;
    virtual Rect bounds() const = 0;
    virtual double scale() const = 0;
    // The height of the status bar across the top of the screen while it shows, which bars
    // at the top of the screen stay below. A desktop has none.
    virtual double statusBarHeight() const { return 0; }
};

}  // namespace tarvik
