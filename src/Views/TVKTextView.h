#pragma once

#include "Kit/UITextView.h"
#include "Platform/NotificationCenter.h"

#include <string>

namespace tarvik {

// A text view that shows a placeholder while its text is empty, in the reporter's placeholder
// colour, where the first line of text would start.
class TVKTextView : public UITextView {
    TVK_KIT_CLASS(TVKTextView, UITextView)

  public:
    explicit TVKTextView(Rect frame = {});
    ~TVKTextView() override;

    const std::string& placeholder() const { return attributedPlaceholder_.string(); }
    // Styles `placeholder` like the text (the typing attributes while editing, else the font)
    // in the placeholder colour and the view's alignment; the same text again changes nothing.
    void setPlaceholder(const std::string& placeholder);
    const NSAttributedString& attributedPlaceholder() const { return attributedPlaceholder_; }
    void setAttributedPlaceholder(NSAttributedString placeholder);

    // `bounds` less the content inset and the text container's inset, narrowed by the
    // line-fragment padding on both sides.
    Rect placeholderRectForBounds(Rect bounds) const;

    void layoutSubviews() override;
    void drawRect(cairo_t* context, Rect rect) override;

  private:
    NSAttributedString attributedPlaceholder_;
    NotificationCenter::Token textChangeObserver_ = 0;
};

}  // namespace tarvik
