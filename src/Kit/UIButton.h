#pragma once

#include "Kit/UIControl.h"
#include "Kit/UIImage.h"
#include "Kit/UIImageView.h"
#include "Kit/UILabel.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace tarvik {

// With the phone's values. A custom button shows its content as given; a system button draws
// its images as templates in its tint colour (unless they are always original), its title in
// the tint colour unless given another, and fades its content while highlighted.
enum UIButtonType : long {
    UIButtonTypeCustom = 0,
    UIButtonTypeSystem = 1,
};

// A control that shows an image and a title, centred side by side (image first) over a
// background image stretched to its bounds, each chosen by the control's state. What is not set
// for the current state is the normal state's. While highlighted without an image of its own
// for that state, a custom button darkens its image and background image, as the phone's does.
class UIButton : public UIControl {
    TVK_KIT_CLASS(UIButton, UIControl)

  public:
    static std::shared_ptr<UIButton> buttonWithType(UIButtonType type);
    explicit UIButton(UIButtonType type = UIButtonTypeCustom, Rect frame = {});

    UIButtonType buttonType() const { return type_; }

    // Content for a state (a combination of UIControlState bits); none removes it, so the
    // normal state's shows. The getters answer with that fallback.
    void setImage(std::optional<UIImage> image, std::uint32_t state);
    std::optional<UIImage> imageForState(std::uint32_t state) const;
    void setBackgroundImage(std::optional<UIImage> image, std::uint32_t state);
    std::optional<UIImage> backgroundImageForState(std::uint32_t state) const;
    void setTitle(std::optional<std::string> title, std::uint32_t state);
    std::optional<std::string> titleForState(std::uint32_t state) const;
    // Without a colour for the state or the normal state: white for a custom button, the tint
    // colour for a system one.
    void setTitleColor(std::optional<Color> color, std::uint32_t state);
    Color titleColorForState(std::uint32_t state) const;

    std::optional<UIImage> currentImage() const { return imageForState(state()); }
    std::optional<UIImage> currentBackgroundImage() const {
        return backgroundImageForState(state());
    }
    std::optional<std::string> currentTitle() const { return titleForState(state()); }
    Color currentTitleColor() const { return titleColorForState(state()); }

    bool adjustsImageWhenHighlighted() const { return adjustsImageWhenHighlighted_; }
    void setAdjustsImageWhenHighlighted(bool adjusts);

    // The view that shows the current image, made on first use.
    std::shared_ptr<UIImageView> imageView();
    // The label that shows the current title in the current title colour, made on first use,
    // in the system font of 15 points until given another. The button sets its text and
    // colour; a font given after the button was laid out shows from its next layout.
    std::shared_ptr<UILabel> titleLabel();

    // The size the content asks for: the current image's and title's side by side. Laid out,
    // an image larger than the bounds is shrunk to fit them, keeping its proportions, and the
    // title gets the width that is left, ending in an ellipsis when that is not enough.
    Size intrinsicContentSize() const;
    void sizeToFit();

    void layoutSubviews() override;
    void drawRect(cairo_t* context, Rect rect) override;
    void tintColorDidChange() override;

  protected:
    void stateDidChange() override;

  private:
    struct StateContent {
        std::optional<UIImage> image;
        std::optional<UIImage> backgroundImage;
        std::optional<std::string> title;
        std::optional<Color> titleColor;
    };

    // The value of `field` for `state`, else the normal state's.
    template <class Value>
    std::optional<Value> contentFor(std::uint32_t state,
                                    std::optional<Value> StateContent::*field) const;
    bool hasOwnContent(std::uint32_t state, std::optional<UIImage> StateContent::*field) const;
    // Whether the current state shows the image or background image darkened.
    bool darkens(std::optional<UIImage> StateContent::*field) const;
    void addImageView();
    void addTitleLabel();
    // Hands the current state's content to the views and asks for layout and display.
    void updateContent();

    UIButtonType type_;
    std::map<std::uint32_t, StateContent> contents_;
    bool adjustsImageWhenHighlighted_ = true;
    std::shared_ptr<UIImageView> imageView_;
    std::shared_ptr<UILabel> titleLabel_;
};

}  // namespace tarvik
