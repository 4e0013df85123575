#pragma once

#include "Helpers/TVKDirectoryLayout.h"
#include "Kit/UIApplication.h"
#include "Kit/UIView.h"
#include "Kit/UIWindow.h"
#include "Platform/Image.h"
#include "Platform/Testing/TestRuntime.h"

#include <tarvik/Tarvik.h>

#include <memory>
#include <string>
#include <vector>

namespace tarvik::testing {

// The SDK in a test runtime with the reporter driven as a person would: fingers on the
// reporter's window, text typed into whatever has the focus, the clock moved by hand.
class ReporterDriver {
  public:
    TestRuntime runtime;
    Tarvik& tarvik = Tarvik::sharedInstance();

    // Opens the reporter and lets its entrance settle.
    void open();
    std::shared_ptr<UIWindow> window() const { return tarvik.window(); }
    // The top screen of the reporter's navigation stack, as `T`.
    template <class T>
    std::shared_ptr<T> top() const;

    // A finger down and up at the centre of `view`, or at `point` of the window.
    void tap(const UIView& view);
    void tap(Point point);
    // Taps the visible button, or alert action, titled `title` in the SDK's windows (an
    // alert's "OK"), the frontmost first.
    void tapButtonTitled(const std::string& title);
    // A finger down at the first point, through the others, and up at the last.
    void drag(const std::vector<Point>& points);
    // Keys typed into the first responder, one character at a time.
    void type(const std::string& text);

    // What the screen shows now, the host's window under the SDK's windows.
    Image screen();
    // The names of the issues in one status folder of the SDK's cache.
    std::vector<std::string> issuesIn(TVKDirectoryLayout::Status status) const;

  private:
    void touch(UITouchPhase phase, Point point);
};

}  // namespace tarvik::testing

#include "Kit/UINavigationController.h"

namespace tarvik::testing {

template <class T>
std::shared_ptr<T> ReporterDriver::top() const {
    auto navigation = std::dynamic_pointer_cast<UINavigationController>(
        window() ? window()->rootViewController() : nullptr);
    return navigation ? std::dynamic_pointer_cast<T>(navigation->topViewController()) : nullptr;
}

}  // namespace tarvik::testing
