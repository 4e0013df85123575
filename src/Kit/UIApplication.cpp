#include "Kit/UIApplication.h"

#include "Kit/UIDevice.h"
#include "Platform/Runtime.h"

#include <algorithm>
#include <set>

namespace tarvik {

UIApplication& UIApplication::sharedApplication() {
    return *Runtime::current().sharedInstance<UIApplication>();
}

UIApplicationMethods& UIApplication::methods() {
    return *Runtime::current().sharedInstance<UIApplicationMethods>();
}

UIApplicationMethods::UIApplicationMethods()
    : sendEvent([](UIApplication& application, const UIEvent& event) {
          application.deliverEvent(event);
      }),
      sendAction([](UIApplication& application, const Selector& action,
                    const std::shared_ptr<NSObject>& target,
                    const std::shared_ptr<NSObject>& sender, const UIEvent* event) {
          return application.deliverAction(action, target, sender, event);
      }) {}

UIApplicationMethods::Message& UIApplicationMethods::message(const std::string& selector) {
    std::lock_guard lock(mutex_);
    return messages_.try_emplace(selector).first->second;
}

UIApplication::UIApplication() {
    UIDevice::currentDevice().beginGeneratingDeviceOrientationNotifications();
}

void UIApplication::deliverEvent(const UIEvent& event) {
    std::set<UIWindow*> windows;
    for (const std::shared_ptr<UITouch>& touch : event.allTouches()) {
        if (std::shared_ptr<UIWindow> window = touch->window()) {
            if (windows.insert(window.get()).second) {
                window->sendEvent(event);
            }
        }
    }
}

void UIApplication::setFirstResponder(const std::shared_ptr<UIResponder>& responder) {
    firstResponder_ = responder;
    Runtime::current().mainQueue().async(
        [this] { keyboard_.update(dynamic_cast<UIKeyInput*>(firstResponder().get()) != nullptr); });
}

bool UIApplication::viewHasActiveTouch(const UIView* view) const {
    for (const auto& [finger, active] : activeTouches_) {
        if (!active.ignored && active.touch->view().get() == view) {
            return true;
        }
    }
    return false;
}

void UIApplication::handleTouch(const std::shared_ptr<UIWindow>& window, std::uint64_t finger,
                                UITouchPhase phase, Point location) {
    double now = Runtime::current().clock().mediaTime();
    auto found = activeTouches_.find(finger);
    if (phase == UITouchPhase::Began) {
        if (found != activeTouches_.end()) {
            return;  // already down
        }
        std::shared_ptr<UIView> view = window->hitTest(location);
        bool ignored = !view || (!view->isMultipleTouchEnabled() && viewHasActiveTouch(view.get()));
        auto touch = std::make_shared<UITouch>(window, view, location, now);
        activeTouches_[finger] = {touch, ignored};
        if (!ignored) {
            sendEvent(UIEvent(UIEventType::Touches, UIEventSubtype::None, {touch}, now));
        }
        return;
    }
    if (found == activeTouches_.end() || phase == UITouchPhase::Stationary) {
        return;
    }
    ActiveTouch active = found->second;
    if (phase == UITouchPhase::Ended || phase == UITouchPhase::Cancelled) {
        activeTouches_.erase(found);
    }
    if (!active.ignored) {
        active.touch->update(phase, location, now);
        sendEvent(UIEvent(UIEventType::Touches, UIEventSubtype::None, {active.touch}, now));
    }
}

bool UIApplication::deliverAction(const Selector& action, const std::shared_ptr<NSObject>& target,
                                  const std::shared_ptr<NSObject>& sender, const UIEvent* event) {
    if (target) {
        return action.perform(*target, sender, event);
    }
    for (std::shared_ptr<UIResponder> responder = firstResponder(); responder;
         responder = responder->nextResponder()) {
        if (action.perform(*responder, sender, event)) {
            return true;
        }
    }
    return false;
}

std::shared_ptr<UIWindow> UIApplication::keyWindow() const {
    for (auto it = keyWindows_.rbegin(); it != keyWindows_.rend(); ++it) {
        std::shared_ptr<UIWindow> window = it->lock();
        if (window && !window->isHidden()) {
            return window;
        }
    }
    return nullptr;
}

void UIApplication::windowDidBecomeKey(const std::shared_ptr<UIWindow>& window) {
    std::erase_if(keyWindows_, [&](const std::weak_ptr<UIWindow>& earlier) {
        std::shared_ptr<UIWindow> alive = earlier.lock();
        return !alive || alive == window;
    });
    keyWindows_.push_back(window);
}

void UIApplication::windowDidChangeVisibility(const std::shared_ptr<UIWindow>& window,
                                              bool visible) {
    std::erase_if(visibleWindows_, [&](const std::weak_ptr<UIWindow>& earlier) {
        std::shared_ptr<UIWindow> alive = earlier.lock();
        return !alive || alive == window;
    });
    if (visible) {
        visibleWindows_.push_back(window);
    }
}

std::vector<std::shared_ptr<UIWindow>> UIApplication::windows() const {
    std::vector<std::shared_ptr<UIWindow>> windows;
    for (const std::weak_ptr<UIWindow>& shown : visibleWindows_) {
        std::shared_ptr<UIWindow> window = shown.lock();
        if (window && !window->isHidden()) {
            windows.push_back(window);
        }
    }
    std::stable_sort(windows.begin(), windows.end(), [](const auto& a, const auto& b) {
        return a->windowLevel() < b->windowLevel();
    });
    return windows;
}

void UIApplication::resignFirstResponderWithin(const UIView& view) {
    auto focused = std::dynamic_pointer_cast<UIView>(firstResponder());
    if (focused && focused->isDescendantOfView(view)) {
        focused->resignFirstResponder();
    }
}

UIInterfaceOrientation UIApplication::statusBarOrientation() const {
    return Runtime::current().platform().screen().interfaceOrientation();
}

}  // namespace tarvik
