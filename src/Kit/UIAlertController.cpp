#include "Kit/UIAlertController.h"

#include "Kit/UILabel.h"
#include "Kit/UIScreen.h"

#include <algorithm>

namespace tarvik {

namespace {

constexpr double kCornerRadius = 13;
constexpr double kSidePadding = 16;
constexpr double kTopPadding = 20;
constexpr double kTitleToMessage = 4;
constexpr double kBottomPadding = 20;
constexpr double kButtonHeight = 44;
constexpr double kAppearDuration = 0.3;
constexpr double kDisappearDuration = 0.2;
// The card's size when it starts to appear, relative to its own.
constexpr double kAppearScale = 1.2;

Color veilColor() {
    return Color::colorWithRed(0, 0, 0, 0.4);
}
Color cardColor() {
    return Color::colorWithRed(0.97, 0.97, 0.97, 1);
}
Color hairlineColor() {
    return Color::colorWithRed(0.8, 0.8, 0.82, 1);
}
Color pressedColor() {
    return Color::colorWithRed(0.85, 0.85, 0.87, 1);
}
Color systemBlue() {
    return Color::colorWithRed(0, 122 / 255.0, 1, 1);
}
Color systemRed() {
    return Color::colorWithRed(1, 59 / 255.0, 48 / 255.0, 1);
}

// One button of the card. It shows itself pressed while a finger that went down on it is
// over it, and reports a tap when the finger lifts there.
class UIAlertControllerActionView : public UIView {
    TVK_KIT_CLASS(UIAlertControllerActionView, UIView)

  public:
    UIAlertControllerActionView(Rect frame, std::function<void()> onTap)
        : UIView(frame), onTap_(std::move(onTap)) {}

    void touchesBegan(const UITouchSet& touches, const UIEvent&) override { track(touches); }
    void touchesMoved(const UITouchSet& touches, const UIEvent&) override { track(touches); }
    void touchesEnded(const UITouchSet& touches, const UIEvent&) override {
        bool inside = isInside(touches);
        setBackgroundColor(std::nullopt);
        if (inside) {
            onTap_();
        }
    }
    void touchesCancelled(const UITouchSet&, const UIEvent&) override {
        setBackgroundColor(std::nullopt);
    }

  private:
    bool isInside(const UITouchSet& touches) const {
        return pointInside(touches.front()->locationInView(this));
    }
    void track(const UITouchSet& touches) {
        setBackgroundColor(isInside(touches) ? std::optional(pressedColor()) : std::nullopt);
    }

    std::function<void()> onTap_;
};

// The action's title across `bounds`, in its style's look.
std::shared_ptr<UILabel> actionLabel(const UIAlertAction& action, Rect bounds) {
    auto label = std::make_shared<UILabel>(bounds);
    label->setText(action.title());
    label->setTextAlignment(NSTextAlignment::Center);
    label->setFont(action.style() == UIAlertActionStyleCancel ? UIFont::boldSystemFontOfSize(17)
                                                              : UIFont::systemFontOfSize(17));
    label->setTextColor(action.style() == UIAlertActionStyleDestructive ? systemRed()
                                                                        : systemBlue());
    return label;
}

std::shared_ptr<UIView> line(Rect frame) {
    auto view = std::make_shared<UIView>(frame);
    view->setBackgroundColor(hairlineColor());
    view->setUserInteractionEnabled(false);
    return view;
}

// A centred label of the card's width at `y`; none for no text.
double addText(UIView& card, const std::string& text, UIFont font, double y) {
    auto label = std::make_shared<UILabel>();
    label->setText(text);
    label->setFont(std::move(font));
    label->setNumberOfLines(0);
    label->setTextAlignment(NSTextAlignment::Center);
    label->setTextColor(Color::colorWithRed(0, 0, 0, 1));
    double width = UIAlertController::kWidth - 2 * kSidePadding;
    double height = label->sizeThatFits({width, 0}).height;
    label->setFrame({{kSidePadding, y}, {width, height}});
    card.addSubview(label);
    return height;
}

}  // namespace

std::shared_ptr<UIAlertAction> UIAlertAction::actionWithTitle(std::string title,
                                                              UIAlertActionStyle style,
                                                              Handler handler) {
    auto action = std::make_shared<UIAlertAction>();
    action->title_ = std::move(title);
    action->style_ = style;
    action->handler_ = std::move(handler);
    return action;
}

std::shared_ptr<UIAlertController> UIAlertController::alertControllerWithTitle(
    std::string title, std::string message, UIAlertControllerStyle) {
    auto alert = std::make_shared<UIAlertController>();
    alert->setTitle(std::move(title));
    alert->message_ = std::move(message);
    return alert;
}

void UIAlertController::addAction(std::shared_ptr<UIAlertAction> action) {
    actions_.push_back(std::move(action));
}

void UIAlertController::loadView() {
    auto veil = std::make_shared<UIView>(UIScreen::mainScreen().bounds());
    veil->setBackgroundColor(veilColor());
    card_ = makeCard();
    Size size = veil->bounds().size;
    Size cardSize = card_->bounds().size;
    card_->setFrame(
        {{(size.width - cardSize.width) / 2, (size.height - cardSize.height) / 2}, cardSize});
    card_->setAutoresizingMask(
        UIViewAutoresizingFlexibleLeftMargin | UIViewAutoresizingFlexibleRightMargin |
        UIViewAutoresizingFlexibleTopMargin | UIViewAutoresizingFlexibleBottomMargin);
    veil->addSubview(card_);
    setView(veil);
}

std::shared_ptr<UIView> UIAlertController::makeCard() {
    auto card = std::make_shared<UIView>();
    card->setBackgroundColor(cardColor());
    card->setLayerStyle({std::nullopt, 0, kCornerRadius});
    card->setClipsToBounds(true);

    double y = kTopPadding;
    if (!title().empty()) {
        y += addText(*card, title(), UIFont::boldSystemFontOfSize(17), y);
    }
    if (!message_.empty()) {
        y += title().empty() ? 0 : kTitleToMessage;
        y += addText(*card, message_, UIFont::systemFontOfSize(13), y);
    }
    y += kBottomPadding;

    // As on the phone, a cancel action goes first of two side by side and last of a column.
    std::vector<std::shared_ptr<UIAlertAction>> ordered = actions_;
    bool sideBySide = ordered.size() == 2;
    auto cancel = std::find_if(ordered.begin(), ordered.end(), [](const auto& action) {
        return action->style() == UIAlertActionStyleCancel;
    });
    if (cancel != ordered.end()) {
        std::shared_ptr<UIAlertAction> moved = *cancel;
        ordered.erase(cancel);
        ordered.insert(sideBySide ? ordered.begin() : ordered.end(), moved);
    }

    double hairline = 1 / UIScreen::mainScreen().scale();
    double buttonWidth = sideBySide ? kWidth / 2 : kWidth;
    std::weak_ptr<NSObject> weak = weak_from_this();
    for (std::size_t index = 0; index < ordered.size(); ++index) {
        Point origin = sideBySide ? Point{buttonWidth * double(index), y}
                                  : Point{0, y + kButtonHeight * double(index)};
        std::shared_ptr<UIAlertAction> action = ordered[index];
        auto button = std::make_shared<UIAlertControllerActionView>(
            Rect{origin, {buttonWidth, kButtonHeight}}, [weak, action] {
                if (auto self = std::static_pointer_cast<UIAlertController>(weak.lock())) {
                    self->didTapAction(action);
                }
            });
        button->addSubview(actionLabel(*action, button->bounds()));
        card->addSubview(button);
        card->addSubview(line({origin, {buttonWidth, hairline}}));
        if (sideBySide && index == 1) {
            card->addSubview(line({origin, {hairline, kButtonHeight}}));
        }
    }
    double rows = sideBySide ? 1 : double(ordered.size());
    card->setFrame({{0, 0}, {kWidth, y + kButtonHeight * rows}});
    return card;
}

void UIAlertController::animatePresentation(bool presenting, bool animated,
                                            std::function<void()> done) {
    std::shared_ptr<UIView> veil = view();
    if (!animated) {
        if (presenting) {  // as it rests, also after an animated dismissal
            veil->setAlpha(1);
            card_->setTransform(AffineTransform::identity());
        }
        done();
        return;
    }
    auto completion = [done = std::move(done)](bool) { done(); };
    if (!presenting) {
        UIView::animateWithDuration(
            kDisappearDuration, [&] { veil->setAlpha(0); }, completion);
        return;
    }
    veil->setAlpha(0);
    card_->setTransform({kAppearScale, 0, 0, kAppearScale, 0, 0});
    UIView::animateWithDuration(
        kAppearDuration,
        [&] {
            veil->setAlpha(1);
            card_->setTransform(AffineTransform::identity());
        },
        completion);
}

void UIAlertController::didTapAction(const std::shared_ptr<UIAlertAction>& action) {
    dismissViewControllerAnimated(true, [action] {
        if (action->handler_) {
            action->handler_(action);
        }
    });
}

}  // namespace tarvik
