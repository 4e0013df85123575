#include "Kit/UINavigationController.h"

#include "Kit/UIApplication.h"

#include "Kit/UIScreen.h"
#include "Platform/Runtime.h"

#include <algorithm>
#include <utility>

namespace tarvik {

namespace {

// The navigation controller's view: it places the bar and the content whenever its size
// changes.
class UILayoutContainerView : public UIView {
    TVK_KIT_CLASS(UILayoutContainerView, UIView)

  public:
    UILayoutContainerView(Rect frame, std::function<void()> layout)
        : UIView(frame), layout_(std::move(layout)) {}
    void layoutSubviews() override { layout_(); }

  private:
    std::function<void()> layout_;
};

// Holds the top controller's view (two of them during a transition), under the bar.
class UINavigationTransitionView : public UIView {
    TVK_KIT_CLASS(UINavigationTransitionView, UIView)

  public:
    using UIView::UIView;
};

// The phone's push and pop.
constexpr double kTransitionDuration = 0.35;

constexpr std::uint32_t kFlexibleSize =
    UIViewAutoresizingFlexibleWidth | UIViewAutoresizingFlexibleHeight;

}  // namespace

UINavigationController::UINavigationController(std::shared_ptr<UIViewController> rootViewController)
    : navigationBar_(std::make_shared<UINavigationBar>()) {
    if (rootViewController) {
        addChildViewController(rootViewController);
    }
}

std::vector<std::shared_ptr<UIViewController>> UINavigationController::viewControllers() const {
    std::vector<std::shared_ptr<UIViewController>> stack = childViewControllers();
    std::erase(stack, leaving_);
    return stack;
}

std::shared_ptr<UIViewController> UINavigationController::topViewController() const {
    std::vector<std::shared_ptr<UIViewController>> stack = viewControllers();
    return stack.empty() ? nullptr : stack.back();
}

void UINavigationController::loadView() {
    auto container = std::make_shared<UILayoutContainerView>(
        UIScreen::mainScreen().bounds(), [weak = weak_from_this()] {
            if (auto self = std::static_pointer_cast<UINavigationController>(weak.lock())) {
                self->layoutBarAndContent();
            }
        });
    container->addSubview(std::make_shared<UINavigationTransitionView>());
    container->addSubview(navigationBar_);
    navigationBar_->setBackButtonHandler([weak = weak_from_this()] {
        if (auto self = std::static_pointer_cast<UINavigationController>(weak.lock())) {
            self->popViewControllerAnimated(true);
        }
    });
    setView(container);
    layoutBarAndContent();
}

void UINavigationController::viewDidLoad() {
    if (std::shared_ptr<UIViewController> top = topViewController()) {
        std::shared_ptr<UIView> topView = top->view();
        topView->setFrame(contentFrame());
        topView->setAutoresizingMask(kFlexibleSize);
        view()->subviews().front()->addSubview(topView);
    }
    updateBar();
}

void UINavigationController::pushViewController(const std::shared_ptr<UIViewController>& controller,
                                                bool animated) {
    std::vector<std::shared_ptr<UIViewController>> stack = viewControllers();
    if (!controller || std::find(stack.begin(), stack.end(), controller) != stack.end()) {
        return;
    }
    std::shared_ptr<UIViewController> outgoing = topViewController();
    addChildViewController(controller);
    if (isViewLoaded()) {
        transition(outgoing, controller, Direction::Push, animated);
    }
}

std::shared_ptr<UIViewController> UINavigationController::popViewControllerAnimated(bool animated) {
    std::vector<std::shared_ptr<UIViewController>> stack = viewControllers();
    if (stack.size() < 2) {
        return nullptr;
    }
    std::shared_ptr<UIViewController> outgoing = stack.back();
    if (!isViewLoaded()) {
        removeChildViewController(*outgoing);
        return outgoing;
    }
    leaving_ = outgoing;
    transition(outgoing, stack[stack.size() - 2], Direction::Pop, animated);
    return outgoing;
}

void UINavigationController::transition(const std::shared_ptr<UIViewController>& outgoing,
                                        const std::shared_ptr<UIViewController>& incoming,
                                        Direction direction, bool animated) {
    if (finishTransition_) {
        // A change made during a slide lands on the slide's end.
        std::exchange(finishTransition_, nullptr)();
    }
    std::shared_ptr<UIView> incomingView = incoming->view();
    bool shown = isShown();
    if (shown) {
        if (outgoing) {
            outgoing->beginAppearanceTransition(false, animated);
        }
        incoming->beginAppearanceTransition(true, animated);
    }
    std::shared_ptr<UIView> transitionView = view()->subviews().front();
    incomingView->setAutoresizingMask(kFlexibleSize);
    transitionView->addSubview(incomingView);
    std::shared_ptr<UIView> outgoingView =
        outgoing && outgoing->isViewLoaded() ? outgoing->view() : nullptr;
    if (outgoingView && direction == Direction::Pop) {
        transitionView->addSubview(outgoingView);  // the popped view slides off over the other
    }
    layoutBarAndContent();  // the new top may hide or show the status bar
    updateBar();
    Rect content = contentFrame();

    finishTransition_ = [this, outgoing, outgoingView, incoming, direction, shown, content] {
        if (outgoingView) {
            UIApplication::sharedApplication().resignFirstResponderWithin(*outgoingView);
            outgoingView->removeFromSuperview();
            outgoingView->setFrame(content);
        }
        if (shown) {
            if (outgoing) {
                outgoing->endAppearanceTransition();
            }
            incoming->endAppearanceTransition();
        }
        if (direction == Direction::Pop) {
            removeChildViewController(*outgoing);
            leaving_.reset();
        }
    };
    if (!animated || !shown) {
        incomingView->setFrame(content);
        std::exchange(finishTransition_, nullptr)();
        return;
    }
    // The view that comes from the right covers the whole width; the one under it moves a
    // third of that, as on the phone.
    double width = content.size.width;
    auto shifted = [&](double dx) {
        return Rect{{content.origin.x + dx, content.origin.y}, content.size};
    };
    bool push = direction == Direction::Push;
    incomingView->setFrame(push ? shifted(width) : shifted(-width / 3));
    std::uint64_t generation = ++transitionGeneration_;
    std::weak_ptr<NSObject> weak = weak_from_this();
    UIView::animateWithDuration(
        kTransitionDuration, 0, 1, 0, 0,
        [&] {
            incomingView->setFrame(content);
            if (outgoingView) {
                outgoingView->setFrame(push ? shifted(-width / 3) : shifted(width));
            }
        },
        [weak, generation](bool) {
            auto self = std::static_pointer_cast<UINavigationController>(weak.lock());
            // Not when a later change already finished this slide.
            if (self && self->transitionGeneration_ == generation && self->finishTransition_) {
                std::exchange(self->finishTransition_, nullptr)();
            }
        });
}

void UINavigationController::updateBar() {
    std::vector<std::shared_ptr<UIViewController>> stack = viewControllers();
    std::shared_ptr<UINavigationItem> top =
        stack.empty() ? nullptr : stack.back()->navigationItem();
    std::shared_ptr<UINavigationItem> back =
        stack.size() < 2 ? nullptr : stack[stack.size() - 2]->navigationItem();
    navigationBar_->setItems(top, back);
}

void UINavigationController::layoutBarAndContent() {
    std::shared_ptr<UIViewController> top = topViewController();
    double statusBar = top && top->prefersStatusBarHidden()
                           ? 0
                           : Runtime::current().platform().screen().statusBarHeight();
    double width = view()->bounds().size.width;
    navigationBar_->setFrame({{0, statusBar}, {width, UINavigationBar::kHeight}});
    navigationBar_->setBackgroundExtension(statusBar);
    view()->subviews().front()->setFrame(view()->bounds());
}

Rect UINavigationController::contentFrame() {
    Rect bar = navigationBar_->frame();
    double top = bar.origin.y + bar.size.height;
    Size size = view()->bounds().size;
    return {{0, top}, {size.width, size.height - top}};
}

}  // namespace tarvik
