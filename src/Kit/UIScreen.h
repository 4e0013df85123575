#pragma once

#include "Kit/NSObject.h"
#include "Platform/Geometry.h"

namespace tarvik {

// The screen the SDK's windows appear on, as the platform measures it at the moment of asking.
// Its bounds are those of the device held upright, whichever way the interface is turned.
class UIScreen : public NSObject {
    TVK_KIT_CLASS(UIScreen, NSObject)

  public:
    static UIScreen& mainScreen();

    Rect bounds() const;
    // Pixels per point.
    double scale() const;
};

}  // namespace tarvik
