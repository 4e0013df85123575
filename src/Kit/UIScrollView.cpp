#include "Kit/UIScrollView.h"

#include <algorithm>
#include <utility>

namespace tarvik {

void UIScrollView::setContentSize(Size size) {
    contentSize_ = size;
    Point offset = contentOffset();
    setContentOffset({offset.x, restingOffsetY(offset.y)});
}

void UIScrollView::setContentInset(UIEdgeInsets inset) {
    contentInset_ = inset;
    Point offset = contentOffset();
    setContentOffset({offset.x, restingOffsetY(offset.y)});
}

void UIScrollView::setContentOffset(Point offset) {
    Rect current = bounds();
    if (current.origin == offset) {
        return;
    }
    setBounds({offset, current.size});
    setNeedsLayout();
    setNeedsDisplay();
}

double UIScrollView::restingOffsetY(double y) const {
    double top = -contentInset_.top;
    double bottom = contentSize_.height + contentInset_.bottom - bounds().size.height;
    return std::clamp(y, top, std::max(top, bottom));
}

void UIScrollView::touchesBegan(const UITouchSet& touches, const UIEvent& event) {
    if (!scrollEnabled_) {
        UIView::touchesBegan(touches, event);
        return;
    }
    dragging_ = true;
}

void UIScrollView::touchesMoved(const UITouchSet& touches, const UIEvent& event) {
    if (!dragging_) {
        UIView::touchesMoved(touches, event);
        return;
    }
    const UITouch& touch = *touches.front();
    double moved = touch.locationInView(nullptr).y - touch.previousLocationInView(nullptr).y;
    Point offset = contentOffset();
    setContentOffset({offset.x, restingOffsetY(offset.y - moved)});
}

void UIScrollView::touchesEnded(const UITouchSet& touches, const UIEvent& event) {
    if (!std::exchange(dragging_, false)) {
        UIView::touchesEnded(touches, event);
    }
}

void UIScrollView::touchesCancelled(const UITouchSet& touches, const UIEvent& event) {
    if (!std::exchange(dragging_, false)) {
        UIView::touchesCancelled(touches, event);
    }
}

}  // namespace tarvik
