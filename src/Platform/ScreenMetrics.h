#pragma once

#include "Platform/Geometry.h"
#include "Platform/Orientation.h"

#include <functional>

namespace tarvik {

// The main screen as the reporter sees it: its bounds in points (origin at 0, 0) and its
// scale, the pixels per point of every bitmap the SDK draws "at the screen's scale".
// Answered at the moment of asking, from any thread.
//
// The bounds stay those of the device held upright whichever way the interface is turned:
// the SDK's overlays turn their own windows for landscape. A screen that never turns (a
// desktop's) keeps the defaults below: upright, with no change to report.
class ScreenMetrics {
  public:
    virtual ~ScreenMetrics() = default;
    virtual Rect bounds() const = 0;
    virtual double scale() const = 0;
    // The height of the status bar across the top of the screen while it shows, which bars
    // at the top of the screen stay below. A desktop has none.
    virtual double statusBarHeight() const { return 0; }

    virtual UIDeviceOrientation deviceOrientation() const { return UIDeviceOrientationPortrait; }
    // The orientation of the interface, which is the status bar's.
    virtual UIInterfaceOrientation interfaceOrientation() const {
        return UIInterfaceOrientationPortrait;
    }
    // `onChange` is called, on any thread, with the new orientation each time the device's
    // orientation changes; none stops the reports. One watcher at a time.
    virtual void watchDeviceOrientation(std::function<void(UIDeviceOrientation)>) {}
};

}  // namespace tarvik
