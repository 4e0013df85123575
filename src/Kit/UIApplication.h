#pragma once

#include "Kit/Interposable.h"
#include "Kit/Selector.h"
#include "Kit/UIKeyboard.h"
#include "Kit/UIResponder.h"
#include "Kit/UIWindow.h"
#include "Platform/Orientation.h"

#include <tarvik/Value.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tarvik {

class UIApplication;

// The application's methods that whoever watches the application's input may wrap (see
// Interposable): one set per runtime, as a class's methods are one set per process.
class UIApplicationMethods {
  public:
    using Message = Interposable<Value(UIApplication&, const Array& arguments)>;

    UIApplicationMethods();

    Interposable<void(UIApplication&, const UIEvent&)> sendEvent;
    Interposable<bool(UIApplication&, const Selector& action,
                      const std::shared_ptr<NSObject>& target,
                      const std::shared_ptr<NSObject>& sender, const UIEvent* event)>
        sendAction;
    // The application's handling of a life-cycle or delegate message, by its selector
    // ("applicationDidBecomeActive:", "application:openURL:options:"); made, without an
    // implementation, on first use.
    Message& message(const std::string& selector);

  private:
    std::mutex mutex_;
    std::map<std::string, Message, std::less<>> messages_;
};

// The application as the toolkit sees it: every event passes its `sendEvent`, every control's
// action its `sendAction` and every message about the application's life its
// `sendApplicationMessage`, where whoever watches the application's input can observe them.
// One per runtime, on the main queue. Like the phone's, it has the device generate orientation
// notifications from the moment it is made.
class UIApplication : public UIResponder {
    TVK_KIT_CLASS(UIApplication, UIResponder)

  public:
    static UIApplication& sharedApplication();
    static UIApplicationMethods& methods();
    UIApplication();

    // Hands an event to the windows of its touches.
    void sendEvent(const UIEvent& event) { methods().sendEvent(*this, event); }

    // Input from a presenter (or a test): finger `finger` of `window` is at `location` (in the
    // window's coordinates) in `phase`. A touch begins on the view hit there; a view that does
    // not take multiple touches gets no second finger while one is down on it. Moves and ends
    // of a finger that is not down are ignored.
    void handleTouch(const std::shared_ptr<UIWindow>& window, std::uint64_t finger,
                     UITouchPhase phase, Point location);

    // Performs `action` on `target` for `sender`; `event` is the input behind it, none when
    // code sent it. Without a target, the first responder or the first responder after it of
    // the action's class takes it. Whether it was delivered: not when no responder is of the
    // action's class, nor when the target is not.
    bool sendAction(const Selector& action, const std::shared_ptr<NSObject>& target,
                    const std::shared_ptr<NSObject>& sender, const UIEvent* event) {
        return methods().sendAction(*this, action, target, sender, event);
    }

    // What the system (or a host standing in for it) tells the application about its life: the
    // message `selector` with its arguments after the application itself. Whatever the
    // application's handling answers (null for none); a message the application does not
    // handle does nothing.
    Value sendApplicationMessage(const std::string& selector, const Array& arguments = {}) {
        return methods().message(selector)(*this, arguments);
    }

    // The window that takes the keyboard and other input not aimed at a point: the one most
    // recently made key that still exists and is visible, so hiding a key window hands the
    // part back to the one that held it before. None when there is no such window.
    std::shared_ptr<UIWindow> keyWindow() const;
    // The windows on screen, back to front: by level, and within a level in the order they
    // were shown.
    std::vector<std::shared_ptr<UIWindow>> windows() const;

    // The orientation the interface is drawn in, as the platform reports it now.
    UIInterfaceOrientation statusBarOrientation() const;

    // The responder that keyboard input goes to, if any. Setting it brings the keyboard up or
    // down to match, in a later turn of the main queue (after the editing callbacks, and once
    // for a move from one field to another).
    std::shared_ptr<UIResponder> firstResponder() const { return firstResponder_.lock(); }
    void setFirstResponder(const std::shared_ptr<UIResponder>& responder);
    UIKeyboard& keyboard() { return keyboard_; }
    // Takes the focus from whatever has it inside `view`: a screen that leaves, or a window
    // that hides, gives up the keyboard.
    void resignFirstResponderWithin(const UIView& view);

  private:
    friend class UIApplicationMethods;
    friend class UIWindow;
    void deliverEvent(const UIEvent& event);
    bool deliverAction(const Selector& action, const std::shared_ptr<NSObject>& target,
                       const std::shared_ptr<NSObject>& sender, const UIEvent* event);
    void windowDidBecomeKey(const std::shared_ptr<UIWindow>& window);
    void windowDidChangeVisibility(const std::shared_ptr<UIWindow>& window, bool visible);

    struct ActiveTouch {
        std::shared_ptr<UITouch> touch;
        bool ignored;  // a second finger on a view that takes one
    };
    bool viewHasActiveTouch(const UIView* view) const;

    std::map<std::uint64_t, ActiveTouch> activeTouches_;
    // Windows in the order they were last made key, the latest last.
    std::vector<std::weak_ptr<UIWindow>> keyWindows_;
    // Windows in the order they were last shown.
    std::vector<std::weak_ptr<UIWindow>> visibleWindows_;
    std::weak_ptr<UIResponder> firstResponder_;
    UIKeyboard keyboard_;
};

}  // namespace tarvik
