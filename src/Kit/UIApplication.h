#pragma once

#include "Kit/UIKeyboard.h"
#include "Kit/UIResponder.h"
#include "Kit/UIWindow.h"

#include <cstdint>
#include <map>
#include <memory>

namespace tarvik {

// The application as the toolkit sees it: every event passes its `sendEvent`, where whoever
// watches the application's input can observe it. One per runtime, on the main queue.
class UIApplication : public UIResponder {
    TVK_KIT_CLASS(UIApplication, UIResponder)

  public:
    static UIApplication& sharedApplication();

    // Hands an event to the windows of its touches.
    virtual void sendEvent(const UIEvent& event);

    // Input from a presenter (or a test): finger `finger` of `window` is at `location` (in the
    // window's coordinates) in `phase`. A touch begins on the view hit there; a view that does
    // not take multiple touches gets no second finger while one is down on it. Moves and ends
    // of a finger that is not down are ignored.
    void handleTouch(const std::shared_ptr<UIWindow>& window, std::uint64_t finger,
                     UITouchPhase phase, Point location);

    // The responder that keyboard input goes to, if any. Setting it brings the keyboard up or
    // down to match, in a later turn of the main queue (after the editing callbacks, and once
    // for a move from one field to another).
    std::shared_ptr<UIResponder> firstResponder() const { return firstResponder_.lock(); }
    void setFirstResponder(const std::shared_ptr<UIResponder>& responder);
    UIKeyboard& keyboard() { return keyboard_; }

  private:
    struct ActiveTouch {
        std::shared_ptr<UITouch> touch;
        bool ignored;  // a second finger on a view that takes one
    };
    bool viewHasActiveTouch(const UIView* view) const;

    std::map<std::uint64_t, ActiveTouch> activeTouches_;
    std::weak_ptr<UIResponder> firstResponder_;
    UIKeyboard keyboard_;
};

}  // namespace tarvik
