#pragma once

#include "Kit/UINavigationController.h"
#include "Kit/UIView.h"
#include "Kit/UIWindow.h"

#include <tarvik/Tarvik.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tarvik::testing {

// A person using the reporter: fingers on its window, keys typed into whatever has the focus,
// and a pause after each tap, spent by `wait` (the virtual clock in tests, the main loop in a
// real host). Every touch goes through the application, as a presenter's would.
class ReporterFingers {
  public:
    explicit ReporterFingers(std::function<void(double seconds)> wait) : wait_(std::move(wait)) {}

    // The reporter's window, while it is on screen.
    std::shared_ptr<UIWindow> window() const { return Tarvik::sharedInstance().window(); }
    // The top screen of the reporter's navigation stack, as `T`.
    template <class T>
    std::shared_ptr<T> top() const {
        auto navigation = std::dynamic_pointer_cast<UINavigationController>(
            window() ? window()->rootViewController() : nullptr);
        return navigation ? std::dynamic_pointer_cast<T>(navigation->topViewController()) : nullptr;
    }

    // A finger down and up at the centre of `view`, or at `point` of the window.
    void tap(const UIView& view);
    void tap(Point point);
    // Taps the visible button, or alert action, titled `title` in the SDK's windows (an
    // alert's "OK"), the frontmost first. Throws when there is none.
    void tapButtonTitled(const std::string& title);
    // A finger down at the first point, through the others, and up at the last.
    void drag(const std::vector<Point>& points);
    // A pause with nothing done.
    void wait(double seconds) { wait_(seconds); }
    // Keys typed into the first responder, one character at a time. Throws when nothing has
    // the focus.
    void type(const std::string& text);

  private:
    void touch(UITouchPhase phase, Point point);
    std::function<void(double)> wait_;
};

}  // namespace tarvik::testing
