#pragma once

namespace tarvik {

// Which way up the device is held, with the phone's names and values.
enum UIDeviceOrientation : long {
    UIDeviceOrientationUnknown = 0,
    UIDeviceOrientationPortrait = 1,
    UIDeviceOrientationPortraitUpsideDown = 2,
    UIDeviceOrientationLandscapeLeft = 3,  // home button on the right
    UIDeviceOrientationLandscapeRight = 4,
    UIDeviceOrientationFaceUp = 5,
    UIDeviceOrientationFaceDown = 6,
};

// Which way up the interface (and its status bar) is drawn, with the phone's names and values.
// The interface turns against the device: a device turned landscape-left shows its interface
// landscape-right, so the two landscape values are swapped between the enumerations.
enum UIInterfaceOrientation : long {
    UIInterfaceOrientationUnknown = 0,
    UIInterfaceOrientationPortrait = 1,
    UIInterfaceOrientationPortraitUpsideDown = 2,
    UIInterfaceOrientationLandscapeLeft = 4,
    UIInterfaceOrientationLandscapeRight = 3,
};

inline bool UIInterfaceOrientationIsPortrait(UIInterfaceOrientation orientation) {
    return orientation == UIInterfaceOrientationPortrait ||
           orientation == UIInterfaceOrientationPortraitUpsideDown;
}

inline bool UIInterfaceOrientationIsLandscape(UIInterfaceOrientation orientation) {
    return orientation == UIInterfaceOrientationLandscapeLeft ||
           orientation == UIInterfaceOrientationLandscapeRight;
}

}  // namespace tarvik
