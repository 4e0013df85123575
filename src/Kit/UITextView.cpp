#include "Kit/UITextView.h"

#include "Kit/UITextField.h"
#include "Platform/Runtime.h"

#include <algorithm>

namespace tarvik {

UITextView::UITextView(Rect frame) : UIView(frame) {
    style_.font = UIFont::systemFontOfSize(12);
    style_.numberOfLines = 0;
}

void UITextView::setText(std::string text) {
    editing_.setText(std::move(text));
    setNeedsDisplay();
}

void UITextView::setFont(UIFont font) {
    style_.font = std::move(font);
    setNeedsDisplay();
}

void UITextView::setTextColor(Color color) {
    style_.color = color;
    setNeedsDisplay();
}

void UITextView::setTextAlignment(NSTextAlignment alignment) {
    style_.alignment = alignment;
    setNeedsDisplay();
}

TextAttributes UITextView::typingAttributes() const {
    return {.font = style_.font, .foregroundColor = style_.color, .alignment = style_.alignment};
}

void UITextView::setTextContainerInset(UIEdgeInsets inset) {
    textContainerInset_ = inset;
    setNeedsDisplay();
}

void UITextView::setLineFragmentPadding(double padding) {
    lineFragmentPadding_ = padding;
    setNeedsDisplay();
}

void UITextView::setContentInset(UIEdgeInsets inset) {
    contentInset_ = inset;
    setNeedsDisplay();
}

Point UITextView::textOrigin() const {
    return {contentInset_.left + textContainerInset_.left + lineFragmentPadding_,
            contentInset_.top + textContainerInset_.top};
}

double UITextView::textWidth() const {
    const Rect container = UIEdgeInsetsInsetRect(
        UIEdgeInsetsInsetRect({{0, 0}, bounds().size}, contentInset_), textContainerInset_);
    return std::max(1.0, container.size.width - 2 * lineFragmentPadding_);
}

std::unique_ptr<TextLayout> UITextView::makeLayout() const {
    return std::make_unique<TextLayout>(NSAttributedString(text()), style_, textWidth());
}

bool UITextView::becomeFirstResponder() {
    if (isFirstResponder()) {
        return true;
    }
    const auto delegate = this->delegate();
    if (delegate && !delegate->textViewShouldBeginEditing(*this)) {
        return false;
    }
    if (!UIView::becomeFirstResponder()) {
        return false;
    }
    setNeedsDisplay();
    if (delegate) {
        delegate->textViewDidBeginEditing(*this);
    }
    return true;
}

bool UITextView::resignFirstResponder() {
    if (!isFirstResponder()) {
        return true;
    }
    const auto delegate = this->delegate();
    if (delegate && !delegate->textViewShouldEndEditing(*this)) {
        return false;
    }
    if (!UIView::resignFirstResponder()) {
        return false;
    }
    setNeedsDisplay();
    if (delegate) {
        delegate->textViewDidEndEditing(*this);
    }
    return true;
}

void UITextView::replace(NSRange range, const std::string& replacement) {
    const auto delegate = this->delegate();
    if (delegate && !delegate->shouldChangeTextInRange(*this, range, replacement)) {
        return;
    }
    editing_.replace(range, replacement);
    scrollToInsertionPoint();
    setNeedsDisplay();
    if (delegate) {
        delegate->textViewDidChange(*this);
    }
    Runtime::current().notificationCenter().post(UITextViewTextDidChangeNotification,
                                                 shared_from_this());
}

void UITextView::insertText(const std::string& text) {
    replace(editing_.rangeForInsertion(), text);
}

void UITextView::deleteBackward() {
    const NSRange range = editing_.rangeForDeleteBackward();
    if (range.length > 0) {
        replace(range, "");
    }
}

void UITextView::moveInsertionPointLeft() {
    editing_.moveLeft();
    scrollToInsertionPoint();
    setNeedsDisplay();
}

void UITextView::moveInsertionPointRight() {
    editing_.moveRight();
    scrollToInsertionPoint();
    setNeedsDisplay();
}

// Scrolls just enough that the insertion point's line lies within the visible height, and
// never past the end of the content.
void UITextView::scrollToInsertionPoint() {
    const auto layout = makeLayout();
    const Rect caret = layout->caretRectForIndex(selectedRange().location);
    const double caretTop = textOrigin().y + caret.origin.y - 1;
    const double caretBottom = textOrigin().y + caret.origin.y + style_.font.lineHeight() +
                               textContainerInset_.bottom + contentInset_.bottom;
    const double visible = bounds().size.height;
    const double contentHeight =
        textOrigin().y + layout->size().height + textContainerInset_.bottom + contentInset_.bottom;
    double offset = contentOffsetY();
    offset = std::min(offset, caretTop);
    offset = std::max(offset, caretBottom - visible);
    offset = std::clamp(offset, 0.0, std::max(0.0, contentHeight - visible));
    setBounds({{bounds().origin.x, offset}, bounds().size});
}

// The view keeps its touches: a tap starts editing where it lands.
void UITextView::touchesBegan(const UITouchSet&, const UIEvent&) {}
void UITextView::touchesMoved(const UITouchSet&, const UIEvent&) {}

void UITextView::touchesEnded(const UITouchSet& touches, const UIEvent&) {
    const Point location = touches.front()->locationInView(this);
    if (!pointInside(location) || !becomeFirstResponder()) {
        return;
    }
    const Point origin = textOrigin();
    editing_.setSelectedRange(
        {makeLayout()->indexAtPoint({location.x - origin.x, location.y - origin.y}), 0});
    setNeedsDisplay();
}

void UITextView::drawRect(cairo_t* context, Rect) {
    const auto layout = makeLayout();
    const Point origin = textOrigin();
    layout->draw(context, origin);
    if (isFirstResponder()) {
        const Rect caret = layout->caretRectForIndex(selectedRange().location);
        const double lineHeight = style_.font.lineHeight();
        // The caret of an empty line sits at the line's start, a full line high.
        const double top = origin.y + lineHeight * std::floor(caret.origin.y / lineHeight + 0.01);
        drawInsertionPoint(context, {{origin.x + caret.origin.x, top}, {0, lineHeight}},
                           tintColor());
    }
}

}  // namespace tarvik
