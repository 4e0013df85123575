#pragma once

#include "Kit/Interposable.h"
#include "Kit/UIResponder.h"
#include "Kit/UIView.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tarvik {

class UINavigationController;
class UINavigationItem;
class UIViewController;
class UIWindow;

// The view controllers' methods that whoever watches the application may wrap (see
// Interposable), one set per runtime: the appearance of a screen, which runs the controller's
// own `viewWillAppear`.
class UIViewControllerMethods {
  public:
    UIViewControllerMethods();
    Interposable<void(UIViewController&, bool animated)> viewWillAppear;
};

// Manages one screen's view: makes it on first use, and is told when it is about to come on
// screen or go off it. Containers (a navigation controller), windows and presentations drive
// those calls through `beginAppearanceTransition`/`endAppearanceTransition`, which keep each
// call to once per change and pass it on to the child controllers whose views are shown.
//
// A controller is held by whoever shows it (its parent, its window, its presenter); the links
// back are plain pointers that the holder clears when it lets go. Main queue only.
class UIViewController : public UIResponder {
    TVK_KIT_CLASS(UIViewController, UIResponder)

  public:
    static UIViewControllerMethods& methods();
    UIViewController();
    ~UIViewController() override;
    UIViewController(const UIViewController&) = delete;
    UIViewController& operator=(const UIViewController&) = delete;

  private:
    enum class Appearance { Disappeared, Appearing, Appeared, Disappearing };

  public:
    // The root view: `loadView` makes it and `viewDidLoad` finishes it, once, on first use.
    std::shared_ptr<UIView> view();
    bool isViewLoaded() const { return view_ != nullptr; }
    // For `loadView` overrides: the view to manage.
    void setView(std::shared_ptr<UIView> view);
    // Makes a plain view the size of the screen.
    virtual void loadView();
    virtual void viewDidLoad() {}

    // Appearance. An override calls the base.
    virtual void viewWillAppear(bool /*animated*/) {}
    virtual void viewDidAppear(bool /*animated*/) {}
    virtual void viewWillDisappear(bool /*animated*/) {}
    virtual void viewDidDisappear(bool /*animated*/) {}
    // For whoever puts the view on screen or takes it off: the will-call now, the did-call at
    // `endAppearanceTransition`. A transition towards the state the controller is already in
    // or heading for calls nothing.
    void beginAppearanceTransition(bool isAppearing, bool animated);
    void endAppearanceTransition();

    const std::string& title() const { return title_; }
    // Also the title of the navigation item.
    void setTitle(std::string title);
    // What a navigation bar shows while this controller is on a navigation stack.
    std::shared_ptr<UINavigationItem> navigationItem();
    // The nearest navigation controller among the parents; none off a stack.
    std::shared_ptr<UINavigationController> navigationController() const;
    std::shared_ptr<UIViewController> parentViewController() const;
    virtual bool prefersStatusBarHidden() const { return false; }

    // Shows `controller` over the whole window of this controller's view, above everything
    // in it. The controller that presents is the root of this one's parents; its view stays
    // where it is and is told nothing (an alert leaves the screen under it in place). Ignored
    // while that controller already presents one, or when this view is in no window.
    // `completion` runs once the controller has appeared.
    void presentViewController(const std::shared_ptr<UIViewController>& controller, bool animated,
                               std::function<void()> completion = {});
    // Takes down the controller this one presents, or else the one that presents this one,
    // then runs `completion`.
    void dismissViewControllerAnimated(bool animated, std::function<void()> completion = {});
    std::shared_ptr<UIViewController> presentedViewController() const { return presented_; }
    std::shared_ptr<UIViewController> presentingViewController() const;

    // The view's superview, as on the phone.
    std::shared_ptr<UIResponder> nextResponder() const override;

  protected:
    // Whether the controller has appeared or is appearing.
    bool isShown() const {
        return appearance_ == Appearance::Appeared || appearance_ == Appearance::Appearing;
    }

    // For containers: the controllers whose views they may show, in order. A child's
    // `parentViewController` is its container until `removeChildViewController`.
    const std::vector<std::shared_ptr<UIViewController>>& childViewControllers() const {
        return children_;
    }
    void addChildViewController(const std::shared_ptr<UIViewController>& child);
    void removeChildViewController(const UIViewController& child);
    void setChildViewControllers(std::vector<std::shared_ptr<UIViewController>> children);

    // Moves a presented view on or off screen and calls `done` when it is there. The base
    // does it at once; a controller with a look of its own for coming and going overrides it.
    virtual void animatePresentation(bool presenting, bool animated, std::function<void()> done);

  private:
    UIViewController& presentationHost();
    std::shared_ptr<UIWindow> window() const;

    std::shared_ptr<UIView> view_;
    std::string title_;
    std::shared_ptr<UINavigationItem> navigationItem_;
    UIViewController* parent_ = nullptr;
    std::vector<std::shared_ptr<UIViewController>> children_;
    UIViewController* presenting_ = nullptr;
    std::shared_ptr<UIViewController> presented_;
    Appearance appearance_ = Appearance::Disappeared;
    bool transitionAnimated_ = false;
};

// The window the view lies in, if any.
std::shared_ptr<UIWindow> windowOfView(const UIView& view);

}  // namespace tarvik
