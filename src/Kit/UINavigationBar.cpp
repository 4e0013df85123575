#include "Kit/UINavigationBar.h"

#include "Kit/UIApplication.h"
#include "Kit/UIButton.h"
#include "Kit/UIControl.h"
#include "Kit/UIScreen.h"

#include <algorithm>

namespace tarvik {

namespace {

// The least space between the title and the items beside it.
constexpr double kTitleGap = 8;
// Where the back indicator starts, and the space between it and the back title.
constexpr double kBackIndicatorInset = 8;
constexpr double kBackTitleGap = 6;
// Room to tap beyond the back title.
constexpr double kBackTapSlop = 8;
// How much of their colour a bar's buttons keep while pressed.
constexpr double kPressedAlpha = 0.2;

// The distance of the items from the bar's edges: the phone's, wider on wide bars.
double edgeMargin(double barWidth) {
    return barWidth >= 414 ? 20 : 16;
}

Color defaultBarColor() {
    return Color::colorWithRed(0.97, 0.97, 0.97, 1);
}

Color defaultHairlineColor() {
    return Color::colorWithRed(0, 0, 0, 0.3);
}

// The phone's back chevron, 13 × 21 points, as a template.
std::optional<UIImage> defaultBackIndicator() {
    std::optional<Image> bitmap =
        Image::render(13, 21, UIScreen::mainScreen().scale(), Image::Transparent, [](cairo_t* c) {
            cairo_set_source_rgb(c, 0, 0, 0);
            cairo_set_line_width(c, 3);
            cairo_set_line_cap(c, CAIRO_LINE_CAP_ROUND);
            cairo_set_line_join(c, CAIRO_LINE_JOIN_ROUND);
            cairo_move_to(c, 11, 2);
            cairo_line_to(c, 2.5, 10.5);
            cairo_line_to(c, 11, 19);
            cairo_stroke(c);
        });
    if (!bitmap) {
        return std::nullopt;
    }
    return UIImage(*bitmap).imageWithRenderingMode(UIImageRenderingModeAlwaysTemplate);
}

// The button of an item with a title: its taps go out with the item as the sender.
class UINavigationButton : public UIButton {
    TVK_KIT_CLASS(UINavigationButton, UIButton)

  public:
    explicit UINavigationButton(const std::shared_ptr<UIBarButtonItem>& item)
        : UIButton(UIButtonTypeSystem), item_(item) {}

    void sendAction(const Selector& action, const std::shared_ptr<NSObject>& target,
                    const UIEvent* event) override {
        UIApplication::sharedApplication().sendAction(action, target, item_.lock(), event);
    }

  private:
    std::weak_ptr<UIBarButtonItem> item_;
};

}  // namespace

// The back button: the back indicator and, after it, the title of the item it goes back to.
class UINavigationBarBackButton : public UIControl {
    TVK_KIT_CLASS(UINavigationBarBackButton, UIControl)

  public:
    using UIControl::UIControl;

    void setContent(std::optional<UIImage> indicator, const std::string& title) {
        if (!indicator_) {
            indicator_ = std::make_shared<UIImageView>();
            title_ = std::make_shared<UILabel>();
            title_->setFont(UIFont::systemFontOfSize(17));
            addSubview(indicator_);
            addSubview(title_);
        }
        // An image left to the view to decide is a shape in the bar's tint, as on the phone.
        if (indicator && indicator->renderingMode() == UIImageRenderingModeAutomatic) {
            indicator = indicator->imageWithRenderingMode(UIImageRenderingModeAlwaysTemplate);
        }
        indicator_->setImage(indicator);
        title_->setText(title);
        title_->setTextColor(tintColor());
        setNeedsLayout();
    }

    // How far the content reaches from the button's left edge.
    double contentWidth() const {
        double width = kBackIndicatorInset + indicatorSize().width;
        if (!title_->text().empty()) {
            width += kBackTitleGap + title_->sizeThatFits({0, 0}).width;
        }
        return width;
    }

    void layoutSubviews() override {
        if (!indicator_) {
            return;  // no content yet
        }
        double height = bounds().size.height;
        Size indicator = indicatorSize();
        indicator_->setFrame({{kBackIndicatorInset, (height - indicator.height) / 2}, indicator});
        Size title = title_->sizeThatFits({0, 0});
        double titleX = kBackIndicatorInset + indicator.width + kBackTitleGap;
        title = {std::max(0.0, std::min(title.width, bounds().size.width - titleX)), title.height};
        title_->setFrame({{titleX, (height - title.height) / 2}, title});
    }

    void tintColorDidChange() override {
        if (title_) {
            title_->setTextColor(tintColor());
        }
    }

  protected:
    void stateDidChange() override {
        if (!indicator_) {
            return;
        }
        double alpha = isHighlighted() ? kPressedAlpha : 1;
        indicator_->setAlpha(alpha);
        title_->setAlpha(alpha);
    }

  private:
    Size indicatorSize() const {
        return indicator_->image() ? indicator_->image()->size() : Size{};
    }

    std::shared_ptr<UIImageView> indicator_;
    std::shared_ptr<UILabel> title_;
};

UINavigationBar::UINavigationBar(Rect frame)
    : UIView(frame),
      background_(std::make_shared<UIImageView>()),
      shadow_(std::make_shared<UIImageView>()),
      titleLabel_(std::make_shared<UILabel>()) {
    setAutoresizingMask(UIViewAutoresizingFlexibleWidth);
    titleLabel_->setTextAlignment(NSTextAlignment::Center);
    setTitleTextAttributes({});
    updateBackground();
    updateShadow();
}

UINavigationBar::~UINavigationBar() {
    for (const std::shared_ptr<UINavigationItem>& shown : {top_, back_}) {
        if (shown) {
            shown->didChange_ = nullptr;
        }
    }
}

void UINavigationBar::setTitleTextAttributes(TextAttributes attributes) {
    titleAttributes_ = std::move(attributes);
    titleLabel_->setFont(titleAttributes_.font.value_or(UIFont::boldSystemFontOfSize(17)));
    titleLabel_->setTextColor(
        titleAttributes_.foregroundColor.value_or(Color::colorWithRed(0, 0, 0, 1)));
    setNeedsLayout();
}

void UINavigationBar::setBackIndicatorImage(std::optional<UIImage> image) {
    backIndicatorImage_ = std::move(image);
    itemsChanged();
}

void UINavigationBar::setBackIndicatorTransitionMaskImage(std::optional<UIImage> image) {
    backIndicatorMask_ = std::move(image);
}

std::optional<UIImage> UINavigationBar::backgroundImageForBarMetrics(UIBarMetrics metrics) const {
    auto found = backgroundImages_.find(metrics);
    return found == backgroundImages_.end() ? std::nullopt : std::optional(found->second);
}

void UINavigationBar::setBackgroundImage(std::optional<UIImage> image, UIBarMetrics metrics) {
    if (image) {
        backgroundImages_.insert_or_assign(metrics, *image);
    } else {
        backgroundImages_.erase(metrics);
    }
    updateBackground();
}

void UINavigationBar::setShadowImage(std::optional<UIImage> image) {
    shadowImage_ = std::move(image);
    updateShadow();
    setNeedsLayout();
}

void UINavigationBar::updateBackground() {
    std::optional<UIImage> image = backgroundImageForBarMetrics(UIBarMetricsDefault);
    background_->setImage(image);
    background_->setBackgroundColor(image ? std::nullopt : std::optional(defaultBarColor()));
}

void UINavigationBar::updateShadow() {
    shadow_->setImage(shadowImage_);
    shadow_->setBackgroundColor(shadowImage_ ? std::nullopt
                                             : std::optional(defaultHairlineColor()));
}

void UINavigationBar::setItems(std::shared_ptr<UINavigationItem> top,
                               std::shared_ptr<UINavigationItem> back) {
    for (const std::shared_ptr<UINavigationItem>& shown : {top_, back_}) {
        if (shown) {
            shown->didChange_ = nullptr;
        }
    }
    top_ = std::move(top);
    back_ = std::move(back);
    // The back item's titles show on the back button, so its changes count too.
    for (const std::shared_ptr<UINavigationItem>& shown : {top_, back_}) {
        if (shown) {
            shown->didChange_ = [this] { itemsChanged(); };
        }
    }
    itemsChanged();
}

void UINavigationBar::setBackgroundExtension(double height) {
    backgroundExtension_ = height;
    setNeedsLayout();
}

std::shared_ptr<UIView> UINavigationBar::backButtonView() const {
    return backButton_ && !backButton_->isHidden() ? backButton_ : nullptr;
}

void UINavigationBar::installSubviews() {
    // Not in the constructor: a view can take subviews only once it is shared.
    if (background_->superview()) {
        return;
    }
    addSubview(background_);
    addSubview(shadow_);
    addSubview(titleLabel_);
    backButton_ = std::make_shared<UINavigationBarBackButton>();
    backButton_->setHidden(true);
    backButton_->addTarget(shared_from_this(),
                           Selector::method("didTapBackButton", &UINavigationBar::didTapBackButton),
                           UIControlEventTouchUpInside);
    addSubview(backButton_);
}

void UINavigationBar::showItemView(const std::shared_ptr<UIBarButtonItem>& item,
                                   std::shared_ptr<UIView>& shown) {
    std::shared_ptr<UIView> view;
    if (item && item->customView()) {
        view = item->customView();
        // A button given no size of its own takes its content's, as in the phone's bars.
        auto button = std::dynamic_pointer_cast<UIButton>(view);
        if (button && button->bounds().size == Size{}) {
            button->sizeToFit();
        }
    } else if (item) {
        auto button = std::make_shared<UINavigationButton>(item);
        button->setTitle(item->title(), UIControlStateNormal);
        button->titleLabel()->setFont(item->style() == UIBarButtonItemStyleDone
                                          ? UIFont::boldSystemFontOfSize(17)
                                          : UIFont::systemFontOfSize(17));
        if (item->action()) {
            button->addTarget(item->target(), *item->action(), UIControlEventTouchUpInside);
        }
        button->sizeToFit();
        view = button;
    }
    if (shown && shown != view) {
        shown->removeFromSuperview();
    }
    shown = view;
    if (view) {
        addSubview(view);
    }
}

std::string UINavigationBar::backTitle() const {
    if (std::shared_ptr<UIBarButtonItem> backItem = back_->backBarButtonItem()) {
        return backItem->title();
    }
    return back_->title().empty() ? "Back" : back_->title();
}

void UINavigationBar::itemsChanged() {
    installSubviews();
    titleLabel_->setText(top_ ? top_->title() : std::string());
    std::shared_ptr<UIView> titleView = top_ ? top_->titleView() : nullptr;
    if (titleView_ && titleView_ != titleView) {
        titleView_->removeFromSuperview();
    }
    titleView_ = titleView;
    if (titleView_) {
        addSubview(titleView_);
    }
    titleLabel_->setHidden(titleView_ != nullptr);
    std::shared_ptr<UIBarButtonItem> left = top_ ? top_->leftBarButtonItem() : nullptr;
    showItemView(left, leftView_);
    showItemView(top_ ? top_->rightBarButtonItem() : nullptr, rightView_);
    bool showsBack = back_ && !left;
    backButton_->setHidden(!showsBack);
    if (showsBack) {
        backButton_->setContent(backIndicatorImage_ ? backIndicatorImage_ : defaultBackIndicator(),
                                backTitle());
    }
    setNeedsLayout();
    layoutIfNeeded();
}

void UINavigationBar::didTapBackButton() {
    if (backHandler_) {
        backHandler_();
    }
}

void UINavigationBar::layoutSubviews() {
    installSubviews();
    Size size = bounds().size;
    background_->setFrame(
        {{0, -backgroundExtension_}, {size.width, size.height + backgroundExtension_}});
    double shadowHeight =
        shadowImage_ ? shadowImage_->size().height : 1 / UIScreen::mainScreen().scale();
    shadow_->setFrame({{0, size.height}, {size.width, shadowHeight}});

    double margin = edgeMargin(size.width);
    double leftEdge = 0;
    double rightEdge = size.width;
    // Buttons made for titles span the bar's height; custom views keep theirs.
    auto itemHeight = [&](const UIView& view) {
        return view.isKindOfClass(UINavigationButton::staticClass()) ? size.height
                                                                     : view.bounds().size.height;
    };
    if (leftView_) {
        Size item{leftView_->bounds().size.width, itemHeight(*leftView_)};
        leftView_->setFrame({{margin, (size.height - item.height) / 2}, item});
        leftEdge = margin + item.width;
    } else if (!backButton_->isHidden()) {
        double content = backButton_->contentWidth();
        backButton_->setFrame({{0, 0}, {content + kBackTapSlop, size.height}});
        leftEdge = content;
    }
    if (rightView_) {
        Size item{rightView_->bounds().size.width, itemHeight(*rightView_)};
        rightEdge = size.width - margin - item.width;
        rightView_->setFrame({{rightEdge, (size.height - item.height) / 2}, item});
    }

    // Centred on the bar, unless that would run into an item: then as near the centre as the
    // space between the items allows, shortened when even that is too narrow.
    double low = leftEdge + kTitleGap;
    double high = rightEdge - kTitleGap;
    double room = std::max(0.0, high - low);
    if (titleView_) {
        Size title = titleView_->bounds().size;
        double x =
            std::clamp((size.width - title.width) / 2, low, std::max(low, high - title.width));
        titleView_->setFrame({{x, (size.height - title.height) / 2}, title});
        return;
    }
    double width = std::min(titleLabel_->sizeThatFits({size.width, size.height}).width, room);
    double x = std::clamp((size.width - width) / 2, low, std::max(low, high - width));
    titleLabel_->setFrame({{x, 0}, {width, size.height}});
}

}  // namespace tarvik
