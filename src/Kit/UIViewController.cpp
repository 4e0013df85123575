#include "Kit/UIViewController.h"

#include "Kit/UINavigationController.h"
#include "Kit/UINavigationItem.h"
#include "Kit/UIScreen.h"
#include "Kit/UIWindow.h"
#include "Platform/Runtime.h"

#include <algorithm>

namespace tarvik {

std::shared_ptr<UIWindow> windowOfView(const UIView& view) {
    std::shared_ptr<UIView> root = view.superview();
    if (!root) {
        return std::dynamic_pointer_cast<UIWindow>(
            std::const_pointer_cast<NSObject>(view.weak_from_this().lock()));
    }
    while (std::shared_ptr<UIView> parent = root->superview()) {
        root = parent;
    }
    return std::dynamic_pointer_cast<UIWindow>(root);
}

UIViewControllerMethods::UIViewControllerMethods()
    : viewWillAppear([](UIViewController& controller, bool animated) {
          controller.viewWillAppear(animated);
      }) {}

UIViewControllerMethods& UIViewController::methods() {
    return *Runtime::current().sharedInstance<UIViewControllerMethods>();
}

UIViewController::UIViewController() = default;

UIViewController::~UIViewController() {
    for (const std::shared_ptr<UIViewController>& child : children_) {
        child->parent_ = nullptr;
    }
    if (presented_) {
        presented_->presenting_ = nullptr;
    }
}

std::shared_ptr<UIView> UIViewController::view() {
    if (!view_) {
        loadView();
        if (!view_) {
            UIViewController::loadView();
        }
        viewDidLoad();
    }
    return view_;
}

void UIViewController::setView(std::shared_ptr<UIView> view) {
    view_ = std::move(view);
}

void UIViewController::loadView() {
    setView(std::make_shared<UIView>(UIScreen::mainScreen().bounds()));
}

void UIViewController::beginAppearanceTransition(bool isAppearing, bool animated) {
    if (isAppearing) {
        if (appearance_ == Appearance::Appeared || appearance_ == Appearance::Appearing) {
            return;
        }
        appearance_ = Appearance::Appearing;
    } else {
        if (appearance_ == Appearance::Disappeared || appearance_ == Appearance::Disappearing) {
            return;
        }
        appearance_ = Appearance::Disappearing;
    }
    transitionAnimated_ = animated;
    if (isAppearing) {
        methods().viewWillAppear(*this, animated);
    } else {
        viewWillDisappear(animated);
    }
    // The children shown in this view come and go with it.
    for (const std::shared_ptr<UIViewController>& child : std::vector(children_)) {
        if (child->isViewLoaded() && view_ && child->view_->isDescendantOfView(*view_)) {
            child->beginAppearanceTransition(isAppearing, animated);
        }
    }
}

void UIViewController::endAppearanceTransition() {
    bool appeared = appearance_ == Appearance::Appearing;
    if (!appeared && appearance_ != Appearance::Disappearing) {
        return;
    }
    appearance_ = appeared ? Appearance::Appeared : Appearance::Disappeared;
    if (appeared) {
        viewDidAppear(transitionAnimated_);
    } else {
        viewDidDisappear(transitionAnimated_);
    }
    for (const std::shared_ptr<UIViewController>& child : std::vector(children_)) {
        child->endAppearanceTransition();
    }
}

void UIViewController::setTitle(std::string title) {
    title_ = title;
    navigationItem()->setTitle(std::move(title));
}

std::shared_ptr<UINavigationItem> UIViewController::navigationItem() {
    if (!navigationItem_) {
        navigationItem_ = std::make_shared<UINavigationItem>(title_);
    }
    return navigationItem_;
}

std::shared_ptr<UIViewController> UIViewController::parentViewController() const {
    if (!parent_) {
        return nullptr;
    }
    return std::static_pointer_cast<UIViewController>(parent_->weak_from_this().lock());
}

std::shared_ptr<UINavigationController> UIViewController::navigationController() const {
    for (UIViewController* ancestor = parent_; ancestor; ancestor = ancestor->parent_) {
        if (ancestor->isKindOfClass(UINavigationController::staticClass())) {
            return std::static_pointer_cast<UINavigationController>(
                ancestor->weak_from_this().lock());
        }
    }
    return nullptr;
}

std::shared_ptr<UIViewController> UIViewController::presentingViewController() const {
    if (!presenting_) {
        return nullptr;
    }
    return std::static_pointer_cast<UIViewController>(presenting_->weak_from_this().lock());
}

std::shared_ptr<UIResponder> UIViewController::nextResponder() const {
    return view_ ? view_->superview() : nullptr;
}

void UIViewController::addChildViewController(const std::shared_ptr<UIViewController>& child) {
    if (child->parent_ && child->parent_ != this) {
        child->parent_->removeChildViewController(*child);
    }
    if (std::find(children_.begin(), children_.end(), child) == children_.end()) {
        children_.push_back(child);
    }
    child->parent_ = this;
}

void UIViewController::removeChildViewController(const UIViewController& child) {
    auto found = std::find_if(children_.begin(), children_.end(),
                              [&](const auto& candidate) { return candidate.get() == &child; });
    if (found != children_.end()) {
        (*found)->parent_ = nullptr;
        children_.erase(found);
    }
}

void UIViewController::setChildViewControllers(
    std::vector<std::shared_ptr<UIViewController>> children) {
    for (const std::shared_ptr<UIViewController>& child : std::vector(children_)) {
        if (std::find(children.begin(), children.end(), child) == children.end()) {
            removeChildViewController(*child);
        }
    }
    for (const std::shared_ptr<UIViewController>& child : children) {
        addChildViewController(child);
    }
    children_ = std::move(children);
}

UIViewController& UIViewController::presentationHost() {
    UIViewController* host = this;
    while (host->parent_) {
        host = host->parent_;
    }
    return *host;
}

std::shared_ptr<UIWindow> UIViewController::window() const {
    return view_ ? windowOfView(*view_) : nullptr;
}

void UIViewController::presentViewController(const std::shared_ptr<UIViewController>& controller,
                                             bool animated, std::function<void()> completion) {
    UIViewController& host = presentationHost();
    std::shared_ptr<UIWindow> window = host.window();
    if (!controller || host.presented_ || !window) {
        return;
    }
    host.presented_ = controller;
    controller->presenting_ = &host;
    std::shared_ptr<UIView> view = controller->view();
    view->setFrame(window->bounds());
    view->setAutoresizingMask(UIViewAutoresizingFlexibleWidth | UIViewAutoresizingFlexibleHeight);
    window->addSubview(view);
    controller->beginAppearanceTransition(true, animated);
    controller->animatePresentation(true, animated,
                                    [controller, completion = std::move(completion)] {
                                        controller->endAppearanceTransition();
                                        if (completion) {
                                            completion();
                                        }
                                    });
}

void UIViewController::dismissViewControllerAnimated(bool animated,
                                                     std::function<void()> completion) {
    UIViewController* host = presented_ ? this : presenting_;
    if (!host || !host->presented_) {
        return;
    }
    std::shared_ptr<UIViewController> controller = host->presented_;
    controller->beginAppearanceTransition(false, animated);
    controller->animatePresentation(false, animated,
                                    [controller, completion = std::move(completion)] {
                                        if (controller->view_) {
                                            controller->view_->removeFromSuperview();
                                        }
                                        controller->endAppearanceTransition();
                                        if (UIViewController* presenter = controller->presenting_) {
                                            presenter->presented_.reset();
                                            controller->presenting_ = nullptr;
                                        }
                                        if (completion) {
                                            completion();
                                        }
                                    });
}

void UIViewController::animatePresentation(bool, bool, std::function<void()> done) {
    done();
}

}  // namespace tarvik
