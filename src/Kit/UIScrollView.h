#pragma once

#include "Kit/UIEdgeInsets.h"
#include "Kit/UIView.h"

namespace tarvik {

// A view that shows part of a larger content: the content offset is the bounds' origin, so
// subviews placed in content coordinates move as it changes. A finger dragged over content
// that does not take touches itself scrolls it vertically, between the top and the bottom
// of the content with the insets added around it. The offset rests inside that range: no
// bouncing past the ends and no gliding on after the finger lifts.
class UIScrollView : public UIView {
    TVK_KIT_CLASS(UIScrollView, UIView)

  public:
    using UIView::UIView;

    Size contentSize() const { return contentSize_; }
    void setContentSize(Size size);
    UIEdgeInsets contentInset() const { return contentInset_; }
    void setContentInset(UIEdgeInsets inset);
    Point contentOffset() const { return bounds().origin; }
    // Kept as given, even outside the range a finger can reach; the view lays itself out
    // again for what now shows.
    void setContentOffset(Point offset);
    bool isScrollEnabled() const { return scrollEnabled_; }
    void setScrollEnabled(bool enabled) { scrollEnabled_ = enabled; }

    void touchesBegan(const UITouchSet& touches, const UIEvent& event) override;
    void touchesMoved(const UITouchSet& touches, const UIEvent& event) override;
    void touchesEnded(const UITouchSet& touches, const UIEvent& event) override;
    void touchesCancelled(const UITouchSet& touches, const UIEvent& event) override;

  private:
    // The nearest vertical offset within the range that scrolling reaches.
    double restingOffsetY(double y) const;

    Size contentSize_;
    UIEdgeInsets contentInset_;
    bool scrollEnabled_ = true;
    bool dragging_ = false;
};

}  // namespace tarvik
