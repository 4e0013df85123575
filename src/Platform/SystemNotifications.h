#pragma once

namespace tarvik {

// Notifications the operating system posts on the SDK's notification centre, under the names
// the phone's system uses. A desktop host may post them itself.

// The system is short of memory. Posted on the main queue.
inline constexpr const char* UIApplicationDidReceiveMemoryWarningNotification =
    "UIApplicationDidReceiveMemoryWarningNotification";

// The user took a screenshot with the system's own tool. Posted on the main queue once the SDK
// watches for screenshots.
inline constexpr const char* UIApplicationUserDidTakeScreenshotNotification =
    "UIApplicationUserDidTakeScreenshotNotification";

// The device was turned (its orientation is `UIDevice::currentDevice().orientation()`). Posted
// on the main queue while the device generates orientation notifications.
inline constexpr const char* UIDeviceOrientationDidChangeNotification =
    "UIDeviceOrientationDidChangeNotification";

}  // namespace tarvik
