#pragma once

#include "Kit/UIImage.h"
#include "Kit/UIView.h"

#include <optional>

namespace tarvik {

// Where a view's content lies in its bounds, with the phone's names and values. The scaling
// modes stretch it (to fill, to fit whole keeping its proportions, or to cover keeping them);
// the others keep its size and align it to the centre, an edge or a corner.
enum UIViewContentMode : long {
    UIViewContentModeScaleToFill = 0,
    UIViewContentModeScaleAspectFit = 1,
    UIViewContentModeScaleAspectFill = 2,
    UIViewContentModeRedraw = 3,  // like scale to fill, for an image
    UIViewContentModeCenter = 4,
    UIViewContentModeTop = 5,
    UIViewContentModeBottom = 6,
    UIViewContentModeLeft = 7,
    UIViewContentModeRight = 8,
    UIViewContentModeTopLeft = 9,
    UIViewContentModeTopRight = 10,
    UIViewContentModeBottomLeft = 11,
    UIViewContentModeBottomRight = 12,
};

// Where content of `size` lies in `bounds` for `mode`. Nothing is rounded.
Rect contentRectForMode(Size size, Rect bounds, UIViewContentMode mode);

// Shows an image, placed by the content mode. A template image is drawn in the view's tint
// colour. Like the phone's, an image view takes no touches until it is allowed to, so that
// touches on it reach the view below (a button's image is the button's).
class UIImageView : public UIView {
    TVK_KIT_CLASS(UIImageView, UIView)

  public:
    explicit UIImageView(Rect frame = {});
    // An image view the size of `image`, at the origin.
    explicit UIImageView(std::optional<UIImage> image);

    const std::optional<UIImage>& image() const { return image_; }
    // Changes what is drawn, not the view's size.
    void setImage(std::optional<UIImage> image);
    UIViewContentMode contentMode() const { return contentMode_; }
    void setContentMode(UIViewContentMode mode);

    void drawRect(cairo_t* context, Rect rect) override;
    void tintColorDidChange() override;

  private:
    std::optional<UIImage> image_;
    UIViewContentMode contentMode_ = UIViewContentModeScaleToFill;
};

}  // namespace tarvik
