#pragma once

#include "Kit/NSObject.h"
#include "Kit/UIViewController.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tarvik {

// With the phone's values; only the alert is offered.
enum UIAlertControllerStyle : long {
    UIAlertControllerStyleAlert = 1,
};

enum UIAlertActionStyle : long {
    UIAlertActionStyleDefault = 0,
    UIAlertActionStyleCancel = 1,
    UIAlertActionStyleDestructive = 2,
};

// A button of an alert: its title, its look and what runs once it was tapped.
class UIAlertAction : public NSObject {
    TVK_KIT_CLASS(UIAlertAction, NSObject)

  public:
    using Handler = std::function<void(const std::shared_ptr<UIAlertAction>& action)>;

    static std::shared_ptr<UIAlertAction> actionWithTitle(std::string title,
                                                          UIAlertActionStyle style,
                                                          Handler handler = {});

    const std::string& title() const { return title_; }
    UIAlertActionStyle style() const { return style_; }

  private:
    friend class UIAlertController;

    std::string title_;
    UIAlertActionStyle style_ = UIAlertActionStyleDefault;
    Handler handler_;
};

// A message that waits for an answer, presented over a screen: a dimmed veil over the whole
// window and, in its middle, a rounded card 270 points wide with the title (bold 17), the
// message (13) and, under a hairline, one button per action: side by side for two, one under
// the other otherwise. Tapping a button dismisses the alert and then runs the action's
// handler. Both coming and going are animated when asked.
class UIAlertController : public UIViewController {
    TVK_KIT_CLASS(UIAlertController, UIViewController)

  public:
    static constexpr double kWidth = 270;

    static std::shared_ptr<UIAlertController> alertControllerWithTitle(
        std::string title, std::string message, UIAlertControllerStyle style);

    const std::string& message() const { return message_; }
    UIAlertControllerStyle preferredStyle() const { return UIAlertControllerStyleAlert; }
    void addAction(std::shared_ptr<UIAlertAction> action);
    const std::vector<std::shared_ptr<UIAlertAction>>& actions() const { return actions_; }

    // The card, once the view is loaded.
    std::shared_ptr<UIView> cardView() const { return card_; }

    void loadView() override;

  protected:
    // In, the veil fades up while the card shrinks to its size; out, both fade away.
    void animatePresentation(bool presenting, bool animated, std::function<void()> done) override;

  private:
    void didTapAction(const std::shared_ptr<UIAlertAction>& action);
    std::shared_ptr<UIView> makeCard();

    std::string message_;
    std::vector<std::shared_ptr<UIAlertAction>> actions_;
    std::shared_ptr<UIView> card_;
};

}  // namespace tarvik
