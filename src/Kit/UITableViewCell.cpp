#include "Kit/UITableViewCell.h"

#include "Kit/UIScreen.h"

namespace tarvik {

UITableViewCell::UITableViewCell(UITableViewCellStyle, std::string reuseIdentifier)
    : UIView(Rect{{0, 0}, {320, 44}}),
      reuseIdentifier_(std::move(reuseIdentifier)),
      contentView_(std::make_shared<UIView>(bounds())) {
    setBackgroundColor(Color::colorWithRed(1, 1, 1, 1));
    contentView_->setAutoresizingMask(UIViewAutoresizingFlexibleWidth |
                                      UIViewAutoresizingFlexibleHeight);
}

std::shared_ptr<UIView> UITableViewCell::contentView() {
    // Not in the constructor: a view can take subviews only once it is shared.
    if (!contentView_->superview()) {
        addSubview(contentView_);
    }
    return contentView_;
}

std::shared_ptr<UILabel> UITableViewCell::textLabel() {
    if (!textLabel_) {
        textLabel_ = std::make_shared<UILabel>();
        contentView()->addSubview(textLabel_);
        setNeedsLayout();
    }
    return textLabel_;
}

void UITableViewCell::setSeparatorInset(UIEdgeInsets inset) {
    separatorInset_ = inset;
    setNeedsDisplay();
}

void UITableViewCell::setLayoutMargins(UIEdgeInsets margins) {
    layoutMargins_ = margins;
    setNeedsLayout();
}

void UITableViewCell::setShowsSeparator(bool shows, bool fullWidth) {
    if (shows != showsSeparator_ || fullWidth != separatorFullWidth_) {
        showsSeparator_ = shows;
        separatorFullWidth_ = fullWidth;
        setNeedsDisplay();
    }
}

void UITableViewCell::layoutSubviews() {
    contentView()->setFrame(bounds());
    if (textLabel_) {
        Size size = contentView_->bounds().size;
        textLabel_->setFrame(
            {{layoutMargins_.left, 0},
             {size.width - layoutMargins_.left - layoutMargins_.right, size.height}});
    }
}

void UITableViewCell::drawRect(cairo_t* context, Rect) {
    if (!showsSeparator_) {
        return;
    }
    // One device pixel thick, on the cell's bottom edge.
    double thickness = 1 / UIScreen::mainScreen().scale();
    Rect area = bounds();
    UIEdgeInsets inset = separatorFullWidth_ ? UIEdgeInsets{} : separatorInset_;
    Color::colorWithRed(200 / 255.0, 199 / 255.0, 204 / 255.0, 1).setAsSourceIn(context);
    cairo_rectangle(context, area.origin.x + inset.left,
                    area.origin.y + area.size.height - thickness,
                    area.size.width - inset.left - inset.right, thickness);
    cairo_fill(context);
}

}  // namespace tarvik
