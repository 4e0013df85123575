#pragma once

#include "Platform/Image.h"
#include "Platform/NotificationCenter.h"

#include <memory>
#include <optional>

namespace tarvik {

// Takes the screenshot an issue report starts from and, in the screenshot process type, turns
// the user's own system screenshot into "TarvikNotificationShouldLaunchIssueSubmission".
class TVKScreenshotHelper {
  public:
    // Made once, at first use: from then on the user's screenshots are watched and observed,
    // for the rest of the process.
    static std::shared_ptr<TVKScreenshotHelper> sharedInstance();
    // Makes sure the shared instance exists. There is no stop: a later process type only makes
    // the observer find the type wrong.
    static void beginDetectingScreenshot();
    // Posts the launch notification when the process type is the screenshot, else nothing.
    void didDetectScreenshot();

    // The host's main window as an opaque image of its bounds in points at the main screen's
    // scale; none when the host has no window. With `shutterSound` the camera's shutter is
    // heard first, as the user's own screenshots sound. Main thread.
    static std::optional<Image> takeScreenshotWithShutterSound(bool shutterSound);

    TVKScreenshotHelper();
    ~TVKScreenshotHelper();
    TVKScreenshotHelper(const TVKScreenshotHelper&) = delete;
    TVKScreenshotHelper& operator=(const TVKScreenshotHelper&) = delete;

  private:
    NotificationCenter& notificationCenter_;
    NotificationCenter::Token observer_;
};

}  // namespace tarvik
