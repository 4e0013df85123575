#include "Kit/UIControl.h"

#include "Kit/UIApplication.h"

namespace tarvik {

std::uint32_t UIControl::state() const {
    std::uint32_t state = UIControlStateNormal;
    if (highlighted_) {
        state |= UIControlStateHighlighted;
    }
    if (!enabled_) {
        state |= UIControlStateDisabled;
    }
    if (selected_) {
        state |= UIControlStateSelected;
    }
    return state;
}

void UIControl::setEnabled(bool enabled) {
    if (enabled_ == enabled) {
        return;
    }
    enabled_ = enabled;
    if (!enabled) {  // a finger already down presses nothing any more
        highlighted_ = false;
        tracking_ = false;
        touchInside_ = false;
    }
    stateDidChange();
}

void UIControl::setSelected(bool selected) {
    if (selected_ == selected) {
        return;
    }
    selected_ = selected;
    stateDidChange();
}

void UIControl::setHighlighted(bool highlighted) {
    if (highlighted_ == highlighted) {
        return;
    }
    highlighted_ = highlighted;
    stateDidChange();
}

void UIControl::addTarget(const std::shared_ptr<NSObject>& target, Selector action,
                          std::uint32_t events) {
    for (TargetAction& existing : targetActions_) {
        bool sameTarget = existing.toFirstResponder ? !target : existing.target.lock() == target;
        if (existing.action == action && sameTarget) {
            existing.events |= events;
            return;
        }
    }
    targetActions_.push_back({target, !target, std::move(action), events});
}

void UIControl::sendActionsForControlEvents(std::uint32_t events, const UIEvent* event) {
    // An action may add targets to this control: send those that were there when it began.
    std::vector<TargetAction> registered = targetActions_;
    for (const TargetAction& targetAction : registered) {
        if ((targetAction.events & events) == 0) {
            continue;
        }
        std::shared_ptr<NSObject> target = targetAction.target.lock();
        if (target || targetAction.toFirstResponder) {
            sendAction(targetAction.action, target, event);
        }
    }
}

void UIControl::sendAction(const Selector& action, const std::shared_ptr<NSObject>& target,
                           const UIEvent* event) {
    UIApplication::sharedApplication().sendAction(action, target, shared_from_this(), event);
}

bool UIControl::isInsideTrackingArea(const UITouchSet& touches) const {
    Point location = touches.front()->locationInView(this);
    Rect area = bounds();
    area.origin.x -= kTrackingMargin;
    area.origin.y -= kTrackingMargin;
    area.size.width += 2 * kTrackingMargin;
    area.size.height += 2 * kTrackingMargin;
    return rectContainsPoint(area, location);
}

void UIControl::touchesBegan(const UITouchSet& touches, const UIEvent& event) {
    if (!enabled_) {
        UIView::touchesBegan(touches, event);
        return;
    }
    tracking_ = true;
    touchInside_ = true;
    setHighlighted(true);
    sendActionsForControlEvents(UIControlEventTouchDown, &event);
}

void UIControl::touchesMoved(const UITouchSet& touches, const UIEvent& event) {
    if (!tracking_) {
        UIView::touchesMoved(touches, event);
        return;
    }
    bool wasInside = touchInside_;
    touchInside_ = isInsideTrackingArea(touches);
    setHighlighted(touchInside_);
    if (touchInside_ != wasInside) {
        sendActionsForControlEvents(
            touchInside_ ? UIControlEventTouchDragEnter : UIControlEventTouchDragExit, &event);
    }
    sendActionsForControlEvents(
        touchInside_ ? UIControlEventTouchDragInside : UIControlEventTouchDragOutside, &event);
}

void UIControl::touchesEnded(const UITouchSet& touches, const UIEvent& event) {
    if (!tracking_) {
        UIView::touchesEnded(touches, event);
        return;
    }
    touchInside_ = isInsideTrackingArea(touches);
    tracking_ = false;
    setHighlighted(false);
    sendActionsForControlEvents(
        touchInside_ ? UIControlEventTouchUpInside : UIControlEventTouchUpOutside, &event);
}

void UIControl::touchesCancelled(const UITouchSet& touches, const UIEvent& event) {
    if (!tracking_) {
        UIView::touchesCancelled(touches, event);
        return;
    }
    tracking_ = false;
    touchInside_ = false;
    setHighlighted(false);
    sendActionsForControlEvents(UIControlEventTouchCancel, &event);
}

}  // namespace tarvik
