#include "Views/TVKOverlayWindow.h"

#include "Helpers/UIColor+Tarvik.h"
#include "Kit/UIApplication.h"
#include "Kit/UIScreen.h"

namespace tarvik {

namespace {

constexpr double kRadiansPerDegree = 0.017453292519943295;

bool interfaceIsLandscape() {
    return UIInterfaceOrientationIsLandscape(
        UIApplication::sharedApplication().statusBarOrientation());
}

}  // namespace

std::shared_ptr<UIWindow> makeOverlayWindow(bool clipsToBounds) {
    auto window = std::make_shared<UIWindow>(UIScreen::mainScreen().bounds());
    window->setBackgroundColor(tarvik_darkTextColor().colorWithAlphaComponent(0.3));
    window->setWindowLevel(UIWindowLevelStatusBar);
    window->setClipsToBounds(clipsToBounds);
    window->setHidden(false);
    rotateWindowIfNeeded(*window);
    return window;
}

void rotateWindowIfNeeded(UIWindow& window) {
    UIInterfaceOrientation orientation = UIApplication::sharedApplication().statusBarOrientation();
    if (!UIInterfaceOrientationIsLandscape(orientation)) {
        return;
    }
    double degrees = orientation == UIInterfaceOrientationLandscapeLeft ? 270 : 90;
    window.setTransform(AffineTransform::rotation(degrees * kRadiansPerDegree));
    window.setFrame(window.bounds());
}

Rect centredCardFrame(Rect card, const UIWindow& window) {
    Size sides = window.frame().size;
    if (interfaceIsLandscape()) {
        card.origin = {(sides.height - card.size.width) / 2, (sides.width - card.size.height) / 2};
    } else {
        card.origin.y = (sides.height - card.size.height) / 2;
    }
    return card;
}

}  // namespace tarvik
