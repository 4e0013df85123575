#pragma once

#include "Kit/NSObject.h"
#include "Platform/Orientation.h"
#include "Platform/ScreenMetrics.h"

namespace tarvik {

// The device the SDK runs on, for its orientation. While it generates orientation
// notifications (the application starts that when it is made, as the phone's does), each turn
// the platform reports is posted as UIDeviceOrientationDidChangeNotification on the main
// queue. Used on the main queue.
class UIDevice : public NSObject {
    TVK_KIT_CLASS(UIDevice, NSObject)

  public:
    static UIDevice& currentDevice();
    UIDevice();
    ~UIDevice() override;

    // The orientation the platform reports now.
    UIDeviceOrientation orientation() const;

    // Nested: notifications stop when every begin has had its end.
    void beginGeneratingDeviceOrientationNotifications();
    void endGeneratingDeviceOrientationNotifications();
    bool isGeneratingDeviceOrientationNotifications() const { return generatingCount_ > 0; }

  private:
    ScreenMetrics& screen_;
    int generatingCount_ = 0;
};

}  // namespace tarvik
