#include "Helpers/TVKScreenshotHelper.h"

#include "Platform/Runtime.h"
#include "Platform/SystemNotifications.h"

#include <tarvik/Tarvik.h>
#include <tarvik/TarvikConstants.h>

namespace tarvik {

std::shared_ptr<TVKScreenshotHelper> TVKScreenshotHelper::sharedInstance() {
    return Runtime::current().sharedInstance<TVKScreenshotHelper>();
}

void TVKScreenshotHelper::beginDetectingScreenshot() {
    sharedInstance();
}

TVKScreenshotHelper::TVKScreenshotHelper()
    : notificationCenter_(Runtime::current().notificationCenter()) {
    observer_ =
        notificationCenter_.addObserver(UIApplicationUserDidTakeScreenshotNotification,
                                        [this](const Notification&) { didDetectScreenshot(); });
    // The platform notices screenshots on a thread of its own; like the system's, the
    // notification is posted on the main queue.
    Runtime& runtime = Runtime::current();
    runtime.platform().userScreenshots().watch([&mainQueue = runtime.mainQueue(),
                                                &center = notificationCenter_] {
        mainQueue.async([&center] { center.post(UIApplicationUserDidTakeScreenshotNotification); });
    });
}

TVKScreenshotHelper::~TVKScreenshotHelper() {
    notificationCenter_.removeObserver(observer_);
}

void TVKScreenshotHelper::didDetectScreenshot() {
    if (Tarvik::sharedInstance().processType() == TarvikProcessTypeScreenshot) {
        notificationCenter_.post(TarvikNotificationShouldLaunchIssueSubmission);
    }
}

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
