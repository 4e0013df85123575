#include "Kit/UIButton.h"

#include <algorithm>

namespace tarvik {

namespace {

// How much darker a highlighted custom button's images are: black at this alpha laid over
// their opaque parts.
constexpr double kHighlightDarkening = 0.3;
// The opacity of a highlighted system button's content.
constexpr double kSystemHighlightAlpha = 0.2;
constexpr double kDefaultTitleFontSize = 15;

// Draws what `draw` draws, darkened where it is opaque: how a highlighted custom button shows
// an image it has none of its own for. Done at drawing time, so that a template image takes the
// tint the button has then.
template <class Draw>
void drawDarkened(cairo_t* context, Draw draw) {
    cairo_push_group(context);
    draw();
    cairo_set_operator(context, CAIRO_OPERATOR_ATOP);
    cairo_set_source_rgba(context, 0, 0, 0, kHighlightDarkening);
    cairo_paint(context);
    cairo_pop_group_to_source(context);
    cairo_paint(context);
}

// The button's image view, a UIImageView to the object model, that can darken its image.
class ButtonImageView : public UIImageView {
  public:
    void setDarkened(bool darkened) {
        if (darkened_ != darkened) {
            darkened_ = darkened;
            setNeedsDisplay();
        }
    }

    void drawRect(cairo_t* context, Rect rect) override {
        if (!darkened_) {
            UIImageView::drawRect(context, rect);
            return;
        }
        drawDarkened(context, [&] { UIImageView::drawRect(context, rect); });
    }

  private:
    bool darkened_ = false;
};

}  // namespace

std::shared_ptr<UIButton> UIButton::buttonWithType(UIButtonType type) {
    return std::make_shared<UIButton>(type);
}

UIButton::UIButton(UIButtonType type, Rect frame) : UIControl(frame), type_(type) {}

template <class Value>
std::optional<Value> UIButton::contentFor(std::uint32_t state,
                                          std::optional<Value> StateContent::*field) const {
    for (std::uint32_t candidate : {state, std::uint32_t{UIControlStateNormal}}) {
        auto found = contents_.find(candidate);
        if (found != contents_.end() && found->second.*field) {
            return found->second.*field;
        }
    }
    return std::nullopt;
}

bool UIButton::hasOwnContent(std::uint32_t state,
                             std::optional<UIImage> StateContent::*field) const {
    auto found = contents_.find(state);
    return found != contents_.end() && (found->second.*field).has_value();
}

void UIButton::setImage(std::optional<UIImage> image, std::uint32_t state) {
    contents_[state].image = std::move(image);
    updateContent();
}

std::optional<UIImage> UIButton::imageForState(std::uint32_t state) const {
    return contentFor(state, &StateContent::image);
}

void UIButton::setBackgroundImage(std::optional<UIImage> image, std::uint32_t state) {
    contents_[state].backgroundImage = std::move(image);
    updateContent();
}

std::optional<UIImage> UIButton::backgroundImageForState(std::uint32_t state) const {
    return contentFor(state, &StateContent::backgroundImage);
}

void UIButton::setTitle(std::optional<std::string> title, std::uint32_t state) {
    contents_[state].title = std::move(title);
    updateContent();
}

std::optional<std::string> UIButton::titleForState(std::uint32_t state) const {
    return contentFor(state, &StateContent::title);
}

void UIButton::setTitleColor(std::optional<Color> color, std::uint32_t state) {
    contents_[state].titleColor = color;
    updateContent();
}

Color UIButton::titleColorForState(std::uint32_t state) const {
    if (std::optional<Color> color = contentFor(state, &StateContent::titleColor)) {
        return *color;
    }
    return type_ == UIButtonTypeSystem ? tintColor() : Color::colorWithRed(1, 1, 1, 1);
}

void UIButton::setAdjustsImageWhenHighlighted(bool adjusts) {
    adjustsImageWhenHighlighted_ = adjusts;
    updateContent();
}

std::shared_ptr<UIImageView> UIButton::imageView() {
    if (!imageView_) {
        addImageView();
    }
    return imageView_;
}

void UIButton::addImageView() {
    imageView_ = std::make_shared<ButtonImageView>();
    addSubview(imageView_);
}

std::shared_ptr<UILabel> UIButton::titleLabel() {
    if (!titleLabel_) {
        addTitleLabel();
        updateContent();
    }
    return titleLabel_;
}

void UIButton::addTitleLabel() {
    titleLabel_ = std::make_shared<UILabel>();
    titleLabel_->setFont(UIFont::systemFontOfSize(kDefaultTitleFontSize));
    addSubview(titleLabel_);
}

bool UIButton::darkens(std::optional<UIImage> StateContent::*field) const {
    return type_ == UIButtonTypeCustom && isHighlighted() && adjustsImageWhenHighlighted_ &&
           !hasOwnContent(state(), field);
}

void UIButton::updateContent() {
    std::optional<UIImage> image = currentImage();
    if (image && type_ == UIButtonTypeSystem &&
        image->renderingMode() == UIImageRenderingModeAutomatic) {
        image = image->imageWithRenderingMode(UIImageRenderingModeAlwaysTemplate);
    }
    if (image && !imageView_) {
        addImageView();
    }
    std::optional<std::string> title = currentTitle();
    if (title && !titleLabel_) {
        addTitleLabel();
    }
    double contentAlpha =
        type_ == UIButtonTypeSystem && isHighlighted() ? kSystemHighlightAlpha : 1;
    if (imageView_) {
        imageView_->setImage(image);
        static_cast<ButtonImageView&>(*imageView_).setDarkened(darkens(&StateContent::image));
        imageView_->setAlpha(contentAlpha);
    }
    if (titleLabel_) {
        titleLabel_->setText(title.value_or(""));
        titleLabel_->setTextColor(currentTitleColor());
        titleLabel_->setAlpha(contentAlpha);
    }
    setNeedsLayout();
    setNeedsDisplay();
}

void UIButton::stateDidChange() {
    updateContent();
}

void UIButton::tintColorDidChange() {
    updateContent();  // a template background and a system button's title take the tint
}

Size UIButton::intrinsicContentSize() const {
    std::optional<UIImage> image = currentImage();
    Size size = image ? image->size() : Size{};
    if (titleLabel_ && currentTitle()) {
        Size title = titleLabel_->sizeThatFits({0, 0});
        size = {size.width + title.width, std::max(size.height, title.height)};
    }
    return size;
}

void UIButton::sizeToFit() {
    Rect frame = this->frame();
    frame.size = intrinsicContentSize();
    setFrame(frame);
}

void UIButton::layoutSubviews() {
    Rect area = bounds();
    Size image = imageView_ && imageView_->image() ? imageView_->image()->size() : Size{};
    if (image.width > area.size.width || image.height > area.size.height) {
        image = contentRectForMode(image, area, UIViewContentModeScaleAspectFit).size;
    }
    Size title;
    double widthLeft = area.size.width - image.width;
    if (titleLabel_ && !titleLabel_->text().empty() && widthLeft > 0) {
        title = titleLabel_->sizeThatFits({widthLeft, 0});
        title = {std::min(title.width, widthLeft), std::min(title.height, area.size.height)};
    }
    double left = area.origin.x + (area.size.width - image.width - title.width) / 2;
    auto centredVertically = [&](double x, Size size) {
        return Rect{{x, area.origin.y + (area.size.height - size.height) / 2}, size};
    };
    if (imageView_) {
        imageView_->setFrame(centredVertically(left, image));
    }
    if (titleLabel_) {
        titleLabel_->setFrame(centredVertically(left + image.width, title));
    }
}

void UIButton::drawRect(cairo_t* context, Rect) {
    std::optional<UIImage> background = currentBackgroundImage();
    if (!background) {
        return;
    }
    auto draw = [&] { background->drawInRect(context, bounds(), tintColor()); };
    if (darkens(&StateContent::backgroundImage)) {
        drawDarkened(context, draw);
    } else {
        draw();
    }
}

}  // namespace tarvik
