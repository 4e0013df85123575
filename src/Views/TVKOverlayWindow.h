#pragma once

#include "Kit/UIWindow.h"

#include <memory>

// What the two overlays (TVKInstructionAlertView, TVKConfirmationAlertView) share: their window
// and where their card lies in it.
namespace tarvik {

// A full-screen window (the main screen's bounds) under a dim veil (the dark text colour at
// alpha 0.3), at the status bar's level, clipping to its bounds or not, made visible (not key)
// and turned for the interface's orientation.
std::shared_ptr<UIWindow> makeOverlayWindow(bool clipsToBounds);

// In a landscape interface, turns `window` by 90 degrees, or 270 for landscape-left (4), and
// sets its frame to its bounds: the window keeps the screen's frame and its own sides are the
// screen's swapped. In portrait it does nothing.
void rotateWindowIfNeeded(UIWindow& window);

// `card` moved to the middle of an overlay window for the interface's orientation of the
// moment. The window's frame is the upright screen's, so in portrait only y changes, to
// (height - card height) / 2; in landscape, where the window is turned, x and y come from the
// frame's sides swapped: x = (height - card width) / 2, y = (width - card height) / 2.
Rect centredCardFrame(Rect card, const UIWindow& window);

}  // namespace tarvik
