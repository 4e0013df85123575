#pragma once

#include "Kit/UINavigationBar.h"
#include "Kit/UIViewController.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace tarvik {

// A stack of controllers shown one at a time under a navigation bar. Pushing shows a new
// controller over the current one; popping goes back. The bar shows the top controller's
// navigation item and a back button for the one under it. The bar lies at the top of the
// view, below the status bar while the top controller lets it show, and the top controller's
// view fills the rest (the bar is opaque, so nothing lies under it).
//
// A change of the top controller while the navigation controller is on screen tells the old
// top it disappears and the new one it appears, in the phone's order: the new one loads its
// view, the old is told it will disappear, the new that it will appear, the views change
// places (animated, a slide from the right for a push and back for a pop), and then the old is
// told it disappeared and the new that it appeared.
class UINavigationController : public UIViewController {
    TVK_KIT_CLASS(UINavigationController, UIViewController)

  public:
    explicit UINavigationController(std::shared_ptr<UIViewController> rootViewController = nullptr);

    // The stack, the root first. A controller being popped has already left it.
    std::vector<std::shared_ptr<UIViewController>> viewControllers() const;
    std::shared_ptr<UIViewController> topViewController() const;
    // Pushing a controller that is already on the stack does nothing.
    void pushViewController(const std::shared_ptr<UIViewController>& controller, bool animated);
    // The controller taken off the top; none when only the root is left.
    std::shared_ptr<UIViewController> popViewControllerAnimated(bool animated);

    std::shared_ptr<UINavigationBar> navigationBar() const { return navigationBar_; }

    void loadView() override;
    void viewDidLoad() override;

  private:
    enum class Direction { Push, Pop };

    // Replaces the shown top view with `incoming`'s, with the appearance calls when on screen.
    void transition(const std::shared_ptr<UIViewController>& outgoing,
                    const std::shared_ptr<UIViewController>& incoming, Direction direction,
                    bool animated);
    void updateBar();
    void layoutBarAndContent();
    Rect contentFrame();

    std::shared_ptr<UINavigationBar> navigationBar_;
    // The popped controller, still a child until its view has left.
    std::shared_ptr<UIViewController> leaving_;
    // Ends the slide under way: takes the old view away and sends the did-calls.
    std::function<void()> finishTransition_;
    std::uint64_t transitionGeneration_ = 0;
};

}  // namespace tarvik
