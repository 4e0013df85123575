#include "Views/TVKTextView.h"

#include "Helpers/UIColor+Tarvik.h"
#include "Platform/Runtime.h"

namespace tarvik {

TVKTextView::TVKTextView(Rect frame) : UITextView(frame) {
    // The view's own text changes redraw it, so the placeholder goes and comes with the text.
    textChangeObserver_ = Runtime::current().notificationCenter().addObserver(
        UITextViewTextDidChangeNotification, [this](const Notification& notification) {
            if (notification.object.get() ==
                static_cast<const void*>(static_cast<const NSObject*>(this))) {
                setNeedsDisplay();
            }
        });
}

TVKTextView::~TVKTextView() {
    Runtime::current().notificationCenter().removeObserver(textChangeObserver_);
}

void TVKTextView::setPlaceholder(const std::string& placeholder) {
    if (placeholder == attributedPlaceholder_.string()) {
        return;
    }
    TextAttributes attributes;
    if (isFirstResponder()) {
        attributes = typingAttributes();
    } else {
        attributes.font = font();
    }
    attributes.foregroundColor = tarvik_placeholderTextColor();
    attributes.alignment = textAlignment();
    setAttributedPlaceholder(NSAttributedString(placeholder, attributes));
}

void TVKTextView::setAttributedPlaceholder(NSAttributedString placeholder) {
    attributedPlaceholder_ = std::move(placeholder);
    setNeedsDisplay();
}

Rect TVKTextView::placeholderRectForBounds(Rect bounds) const {
    Rect rect =
        UIEdgeInsetsInsetRect(UIEdgeInsetsInsetRect(bounds, contentInset()), textContainerInset());
    rect.origin.x += lineFragmentPadding();
    rect.size.width -= 2 * lineFragmentPadding();
    return rect;
}

void TVKTextView::layoutSubviews() {
    UITextView::layoutSubviews();
    if (!placeholder().empty() && text().empty()) {
        setNeedsDisplay();
    }
}

void TVKTextView::drawRect(cairo_t* context, Rect rect) {
    if (text().empty() && !placeholder().empty()) {
        const Rect area = placeholderRectForBounds(bounds());
        TextStyle style;
        style.font = font();
        style.color = tarvik_placeholderTextColor();
        TextLayout(attributedPlaceholder_, style, area.size.width, area.size.height)
            .draw(context, area.origin);
    }
    UITextView::drawRect(context, rect);
}

}  // namespace tarvik
