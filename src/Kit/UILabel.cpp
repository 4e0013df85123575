#include "Kit/UILabel.h"

#include <algorithm>

namespace tarvik {

UILabel::UILabel(Rect frame) : UIView(frame) {
    style_.numberOfLines = 1;
    setUserInteractionEnabled(false);
}

// A change of what the text needs may move it and its neighbours: the superview lays out again.
void UILabel::contentSizeChanged() {
    setNeedsDisplay();
    if (const auto superview = this->superview()) {
        superview->setNeedsLayout();
    }
}

void UILabel::setText(std::string text) {
    text_ = NSAttributedString(std::move(text));
    contentSizeChanged();
}

void UILabel::setAttributedText(NSAttributedString text) {
    text_ = std::move(text);
    contentSizeChanged();
}

void UILabel::setFont(UIFont font) {
    style_.font = std::move(font);
    contentSizeChanged();
}

void UILabel::setTextColor(Color color) {
    style_.color = color;
    setNeedsDisplay();
}

void UILabel::setTextAlignment(NSTextAlignment alignment) {
    style_.alignment = alignment;
    setNeedsDisplay();
}

void UILabel::setNumberOfLines(int lines) {
    style_.numberOfLines = std::max(0, lines);
    contentSizeChanged();
}

Size UILabel::sizeThatFits(Size size) const {
    return TextLayout(text_, style_, size.width, size.height).size();
}

void UILabel::drawRect(cairo_t* context, Rect) {
    const Rect area = bounds();
    const TextLayout layout(text_, style_, area.size.width, area.size.height);
    const double top = area.origin.y + (area.size.height - layout.size().height) / 2;
    layout.draw(context, {area.origin.x, top});
}

}  // namespace tarvik
