#include "Kit/UINavigationBar.h"

#include <algorithm>

namespace tarvik {

namespace {

// The least space between the title and the items beside it.
constexpr double kTitleGap = 8;

// The distance of the items from the bar's edges: the phone's, wider on wide bars.
double edgeMargin(double barWidth) {
    return barWidth >= 414 ? 20 : 16;
}

}  // namespace

UINavigationBar::UINavigationBar(Rect frame)
    : UIView(frame),
      background_(std::make_shared<UIView>()),
      titleLabel_(std::make_shared<UILabel>()) {
    setAutoresizingMask(UIViewAutoresizingFlexibleWidth);
    background_->setBackgroundColor(Color::colorWithRed(0.97, 0.97, 0.97, 1));
    background_->setUserInteractionEnabled(false);
    titleLabel_->setTextAlignment(NSTextAlignment::Center);
    setTitleTextAttributes({});
}

UINavigationBar::~UINavigationBar() {
    if (top_) {
        top_->didChange_ = nullptr;
    }
}

void UINavigationBar::setTitleTextAttributes(TextAttributes attributes) {
    titleAttributes_ = std::move(attributes);
    titleLabel_->setFont(titleAttributes_.font.value_or(UIFont::boldSystemFontOfSize(17)));
    titleLabel_->setTextColor(
        titleAttributes_.foregroundColor.value_or(Color::colorWithRed(0, 0, 0, 1)));
    setNeedsLayout();
}

void UINavigationBar::setItems(std::shared_ptr<UINavigationItem> top,
                               std::shared_ptr<UINavigationItem> back) {
    if (top_) {
        top_->didChange_ = nullptr;
    }
    top_ = std::move(top);
    back_ = std::move(back);
    if (top_) {
        top_->didChange_ = [this] { itemsChanged(); };
    }
    itemsChanged();
}

void UINavigationBar::setBackgroundExtension(double height) {
    backgroundExtension_ = height;
    setNeedsLayout();
}

void UINavigationBar::showItemView(const std::shared_ptr<UIBarButtonItem>& item,
                                   std::shared_ptr<UIView>& shown) {
    std::shared_ptr<UIView> view = item ? item->customView() : nullptr;
    if (shown && shown != view) {
        shown->removeFromSuperview();
    }
    shown = view;
    if (view) {
        addSubview(view);
    }
}

void UINavigationBar::installSubviews() {
    // Not in the constructor: a view can take subviews only once it is shared.
    if (!background_->superview()) {
        addSubview(background_);
        addSubview(titleLabel_);
    }
}

void UINavigationBar::itemsChanged() {
    installSubviews();
    titleLabel_->setText(top_ ? top_->title() : std::string());
    showItemView(top_ ? top_->leftBarButtonItem() : nullptr, leftView_);
    showItemView(top_ ? top_->rightBarButtonItem() : nullptr, rightView_);
    setNeedsLayout();
    layoutIfNeeded();
}

void UINavigationBar::layoutSubviews() {
    installSubviews();
    Size size = bounds().size;
    background_->setFrame(
        {{0, -backgroundExtension_}, {size.width, size.height + backgroundExtension_}});
    double margin = edgeMargin(size.width);
    double leftEdge = 0;
    double rightEdge = size.width;
    if (leftView_) {
        Size item = leftView_->bounds().size;
        leftView_->setFrame({{margin, (size.height - item.height) / 2}, item});
        leftEdge = margin + item.width;
    }
    if (rightView_) {
        Size item = rightView_->bounds().size;
        rightEdge = size.width - margin - item.width;
        rightView_->setFrame({{rightEdge, (size.height - item.height) / 2}, item});
    }
    // Centred on the bar, unless that would run into an item: then as near the centre as the
    // space between the items allows, shortened when even that is too narrow.
    double low = leftEdge + kTitleGap;
    double high = rightEdge - kTitleGap;
    double width = std::min(titleLabel_->sizeThatFits({size.width, size.height}).width,
                            std::max(0.0, high - low));
    double x = std::clamp((size.width - width) / 2, low, std::max(low, high - width));
    titleLabel_->setFrame({{x, 0}, {width, size.height}});
}

}  // namespace tarvik
