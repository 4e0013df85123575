#pragma once

#include "Kit/NSAttributedString.h"
#include "Kit/Render/TextLayout.h"
#include "Kit/UIView.h"

#include <optional>
#include <string>

namespace tarvik {

// Read-only text: plain text in one font, colour and alignment, or attributed text whose
// ranges override them. The lines are centred vertically in the bounds; text that does not
// fit in `numberOfLines` (1 by default, 0 for any number) or in the height ends in an ellipsis.
class UILabel : public UIView {
    TVK_KIT_CLASS(UILabel, UIView)

  public:
    explicit UILabel(Rect frame = {});

    const std::string& text() const { return text_.string(); }
    // Plain text: drops any attributes the text had.
    void setText(std::string text);
    const NSAttributedString& attributedText() const { return text_; }
    void setAttributedText(NSAttributedString text);

    const UIFont& font() const { return style_.font; }
    void setFont(UIFont font);
    const Color& textColor() const { return style_.color; }
    void setTextColor(Color color);
    NSTextAlignment textAlignment() const { return style_.alignment; }
    void setTextAlignment(NSTextAlignment alignment);
    int numberOfLines() const { return style_.numberOfLines; }
    void setNumberOfLines(int lines);

    // The size the text needs within `size` (a side that is not positive does not limit).
    Size sizeThatFits(Size size) const;

    void drawRect(cairo_t* context, Rect rect) override;

  private:
    void contentSizeChanged();

    NSAttributedString text_;
    TextStyle style_;
};

}  // namespace tarvik
