#pragma once

#include "Kit/Selector.h"
#include "Kit/UIView.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace tarvik {

// A control's state, a set of bits with the phone's values; normal is none of them.
enum UIControlState : std::uint32_t {
    UIControlStateNormal = 0,
    UIControlStateHighlighted = 1 << 0,
    UIControlStateDisabled = 1 << 1,
    UIControlStateSelected = 1 << 2,
};

// The events a control sends actions for, bits with the phone's values.
enum UIControlEvents : std::uint32_t {
    UIControlEventTouchDown = 1 << 0,
    UIControlEventTouchDragInside = 1 << 2,
    UIControlEventTouchDragOutside = 1 << 3,
    UIControlEventTouchDragEnter = 1 << 4,
    UIControlEventTouchDragExit = 1 << 5,
    UIControlEventTouchUpInside = 1 << 6,
    UIControlEventTouchUpOutside = 1 << 7,
    UIControlEventTouchCancel = 1 << 8,
    UIControlEventValueChanged = 1 << 12,
    UIControlEventAllTouchEvents = 0x00000FFF,
    UIControlEventAllEvents = 0xFFFFFFFF,
};

// A view that turns touches into actions sent to targets. While a finger that went down on it
// is tracked the control is highlighted as long as the finger is inside, and lifting the
// finger inside sends touch-up-inside. As on the phone, "inside" reaches a generous
// kTrackingMargin beyond the bounds on every side, so a finger that slips off a small button
// still presses it. Every action goes through UIApplication::sendAction. A disabled control
// tracks nothing and passes its touches on to the next responder. Main queue only.
class UIControl : public UIView {
    TVK_KIT_CLASS(UIControl, UIView)

  public:
    static constexpr double kTrackingMargin = 70;

    using UIView::UIView;

    std::uint32_t state() const;
    bool isEnabled() const { return enabled_; }
    void setEnabled(bool enabled);
    bool isSelected() const { return selected_; }
    void setSelected(bool selected);
    bool isHighlighted() const { return highlighted_; }
    void setHighlighted(bool highlighted);
    bool isTracking() const { return tracking_; }
    bool isTouchInside() const { return touchInside_; }

    // Sends `action` to `target` for each of `events`; without a target, to the first
    // responder that takes it. The target is not kept alive: once it is gone its actions are
    // not sent. Adding a target's action again adds its events to it.
    void addTarget(const std::shared_ptr<NSObject>& target, Selector action, std::uint32_t events);
    // Sends the actions of every target registered for any of `events`, in the order they
    // were added; `event` is the input that caused it, none when code asks.
    void sendActionsForControlEvents(std::uint32_t events, const UIEvent* event = nullptr);
    // Hands one action to the application's dispatcher, with this control as the sender.
    virtual void sendAction(const Selector& action, const std::shared_ptr<NSObject>& target,
                            const UIEvent* event);

    void touchesBegan(const UITouchSet& touches, const UIEvent& event) override;
    void touchesMoved(const UITouchSet& touches, const UIEvent& event) override;
    void touchesEnded(const UITouchSet& touches, const UIEvent& event) override;
    void touchesCancelled(const UITouchSet& touches, const UIEvent& event) override;

  protected:
    // Called after the state changed, for subclasses whose look follows it.
    virtual void stateDidChange() {}

  private:
    struct TargetAction {
        std::weak_ptr<NSObject> target;
        bool toFirstResponder;  // added without a target
        Selector action;
        std::uint32_t events;
    };

    bool isInsideTrackingArea(const UITouchSet& touches) const;

    std::vector<TargetAction> targetActions_;
    bool enabled_ = true;
    bool selected_ = false;
    bool highlighted_ = false;
    bool tracking_ = false;
    bool touchInside_ = false;
};

}  // namespace tarvik
