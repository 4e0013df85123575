#include "Kit/UIDevice.h"

#include "Platform/Runtime.h"
#include "Platform/SystemNotifications.h"

namespace tarvik {

UIDevice& UIDevice::currentDevice() {
    return *Runtime::current().sharedInstance<UIDevice>();
}

UIDevice::UIDevice() : screen_(Runtime::current().platform().screen()) {}

UIDevice::~UIDevice() {
    if (generatingCount_ > 0) {
        screen_.watchDeviceOrientation(nullptr);
    }
}

UIDeviceOrientation UIDevice::orientation() const {
    return screen_.deviceOrientation();
}

void UIDevice::beginGeneratingDeviceOrientationNotifications() {
    if (generatingCount_++ > 0) {
        return;
    }
    // The platform may report a turn on a thread of its own; the phone posts on the main one,
    // with the device as the notification's object.
    Runtime& runtime = Runtime::current();
    std::weak_ptr<NSObject> device = weak_from_this();
    screen_.watchDeviceOrientation([&mainQueue = runtime.mainQueue(),
                                    &center = runtime.notificationCenter(),
                                    device](UIDeviceOrientation) {
        mainQueue.async([&center, device] {
            if (std::shared_ptr<NSObject> object = device.lock()) {
                center.post(UIDeviceOrientationDidChangeNotification, object);
            }
        });
    });
}

void UIDevice::endGeneratingDeviceOrientationNotifications() {
    if (generatingCount_ > 0 && --generatingCount_ == 0) {
        screen_.watchDeviceOrientation(nullptr);
    }
}

}  // namespace tarvik
