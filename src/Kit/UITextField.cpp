#include "Kit/UITextField.h"

#include "Platform/Runtime.h"

#include <algorithm>

namespace tarvik {

namespace {

// The phone's grey for a placeholder given as plain text.
Color defaultPlaceholderColor() {
    return Color::colorWithRed(0, 0, 0.0980392, 0.22);
}

}  // namespace

void drawInsertionPoint(cairo_t* context, Rect caret, const Color& color) {
    color.setAsSourceIn(context);
    cairo_rectangle(context, caret.origin.x - 1, caret.origin.y, 2, caret.size.height);
    cairo_fill(context);
}

UITextField::UITextField(Rect frame) : UIView(frame) {}

void UITextField::setText(std::string text) {
    editing_.setText(std::move(text));
    setNeedsDisplay();
}

void UITextField::setPlaceholder(std::string placeholder) {
    setAttributedPlaceholder(
        NSAttributedString(std::move(placeholder), {.foregroundColor = defaultPlaceholderColor()}));
}

void UITextField::setAttributedPlaceholder(NSAttributedString placeholder) {
    attributedPlaceholder_ = std::move(placeholder);
    setNeedsDisplay();
}

void UITextField::setFont(UIFont font) {
    style_.font = std::move(font);
    setNeedsDisplay();
}

void UITextField::setTextColor(Color color) {
    style_.color = color;
    setNeedsDisplay();
}

void UITextField::setTextAlignment(NSTextAlignment alignment) {
    style_.alignment = alignment;
    setNeedsDisplay();
}

void UITextField::setLeftView(std::shared_ptr<UIView> view) {
    if (leftView_) {
        leftView_->removeFromSuperview();
    }
    leftView_ = std::move(view);
    setNeedsLayout();
}

void UITextField::setLeftViewMode(UITextFieldViewMode mode) {
    leftViewMode_ = mode;
    setNeedsLayout();
}

void UITextField::setRightView(std::shared_ptr<UIView> view) {
    if (rightView_) {
        rightView_->removeFromSuperview();
    }
    rightView_ = std::move(view);
    setNeedsLayout();
}

void UITextField::setRightViewMode(UITextFieldViewMode mode) {
    rightViewMode_ = mode;
    setNeedsLayout();
}

bool UITextField::showsSideView(const std::shared_ptr<UIView>& view,
                                UITextFieldViewMode mode) const {
    if (!view) {
        return false;
    }
    switch (mode) {
        case UITextFieldViewMode::Always:
            return true;
        case UITextFieldViewMode::WhileEditing:
            return isEditing();
        case UITextFieldViewMode::UnlessEditing:
            return !isEditing();
        default:
            return false;
    }
}

Rect UITextField::textRectForBounds(Rect bounds) const {
    double left = bounds.origin.x;
    double right = bounds.origin.x + bounds.size.width;
    if (showsSideView(leftView_, leftViewMode_)) {
        left += leftView_->frame().size.width;
    }
    if (showsSideView(rightView_, rightViewMode_)) {
        right -= rightView_->frame().size.width;
    }
    return {{left, bounds.origin.y}, {std::max(0.0, right - left), bounds.size.height}};
}

// Side views sit at the edges, centred vertically, and leave the field while they do not show.
void UITextField::layoutSubviews() {
    const Rect area = bounds();
    const auto place = [&](const std::shared_ptr<UIView>& view, UITextFieldViewMode mode,
                           bool atLeft) {
        if (!view) {
            return;
        }
        if (!showsSideView(view, mode)) {
            view->removeFromSuperview();
            return;
        }
        const Size size = view->frame().size;
        const double x = atLeft ? area.origin.x : area.origin.x + area.size.width - size.width;
        view->setFrame({{x, area.origin.y + (area.size.height - size.height) / 2}, size});
        if (view->superview().get() != this) {
            addSubview(view);
        }
    };
    place(leftView_, leftViewMode_, true);
    place(rightView_, rightViewMode_, false);
}

bool UITextField::becomeFirstResponder() {
    if (isFirstResponder()) {
        return true;
    }
    const auto delegate = this->delegate();
    if (delegate && !delegate->textFieldShouldBeginEditing(*this)) {
        return false;
    }
    if (!UIView::becomeFirstResponder()) {
        return false;
    }
    setNeedsLayout();
    setNeedsDisplay();
    if (delegate) {
        delegate->textFieldDidBeginEditing(*this);
    }
    return true;
}

bool UITextField::resignFirstResponder() {
    if (!isFirstResponder()) {
        return true;
    }
    const auto delegate = this->delegate();
    if (delegate && !delegate->textFieldShouldEndEditing(*this)) {
        return false;
    }
    if (!UIView::resignFirstResponder()) {
        return false;
    }
    setNeedsLayout();
    setNeedsDisplay();
    if (delegate) {
        delegate->textFieldDidEndEditing(*this);
    }
    return true;
}

void UITextField::replace(NSRange range, const std::string& replacement) {
    if (const auto delegate = this->delegate();
        delegate && !delegate->shouldChangeCharactersInRange(*this, range, replacement)) {
        return;
    }
    editing_.replace(range, replacement);
    setNeedsDisplay();
    Runtime::current().notificationCenter().post(UITextFieldTextDidChangeNotification,
                                                 shared_from_this());
}

void UITextField::insertText(const std::string& text) {
    if (text == "\n") {
        if (const auto delegate = this->delegate()) {
            delegate->textFieldShouldReturn(*this);
        }
        return;
    }
    replace(editing_.rangeForInsertion(), text);
}

void UITextField::deleteBackward() {
    const NSRange range = editing_.rangeForDeleteBackward();
    if (range.length > 0) {
        replace(range, "");
    }
}

void UITextField::moveInsertionPointLeft() {
    editing_.moveLeft();
    setNeedsDisplay();
}

void UITextField::moveInsertionPointRight() {
    editing_.moveRight();
    setNeedsDisplay();
}

// The field keeps its touches: a tap starts editing where it lands.
void UITextField::touchesBegan(const UITouchSet&, const UIEvent&) {}
void UITextField::touchesMoved(const UITouchSet&, const UIEvent&) {}

void UITextField::touchesEnded(const UITouchSet& touches, const UIEvent&) {
    const Point location = touches.front()->locationInView(this);
    if (!pointInside(location) || !becomeFirstResponder()) {
        return;
    }
    const Rect area = textRectForBounds(bounds());
    const TextLayout layout(NSAttributedString(text()), style_, 0);
    const double scroll = horizontalScroll(layout, area.size.width);
    const double top = area.origin.y + (area.size.height - layout.size().height) / 2;
    editing_.setSelectedRange(
        {layout.indexAtPoint({location.x - area.origin.x + scroll, location.y - top}), 0});
    setNeedsDisplay();
}

double UITextField::horizontalScroll(const TextLayout& layout, double width) const {
    const double caret = layout.caretRectForIndex(selectedRange().location).origin.x;
    return std::clamp(caret + 2 - width, 0.0, std::max(0.0, layout.size().width + 2 - width));
}

void UITextField::drawRect(cairo_t* context, Rect) {
    const Rect area = textRectForBounds(bounds());
    cairo_save(context);
    cairo_rectangle(context, area.origin.x, area.origin.y, area.size.width, area.size.height);
    cairo_clip(context);
    const bool showsPlaceholder = text().empty();
    const NSAttributedString shown =
        showsPlaceholder ? attributedPlaceholder_ : NSAttributedString(text());
    const TextLayout layout(shown, style_, showsPlaceholder ? area.size.width : 0);
    const double scroll = showsPlaceholder ? 0 : horizontalScroll(layout, area.size.width);
    const Point origin{area.origin.x - scroll,
                       area.origin.y + (area.size.height - layout.size().height) / 2};
    layout.draw(context, origin);
    if (isEditing()) {
        const Rect caret = showsPlaceholder ? Rect{{0, 0}, {0, style_.font.lineHeight()}}
                                            : layout.caretRectForIndex(selectedRange().location);
        drawInsertionPoint(context,
                           {{origin.x + caret.origin.x, origin.y}, {0, style_.font.lineHeight()}},
                           tintColor());
    }
    cairo_restore(context);
}

}  // namespace tarvik
