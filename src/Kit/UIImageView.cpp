#include "Kit/UIImageView.h"

#include <algorithm>

namespace tarvik {

namespace {

enum class Alignment { Start, Middle, End };

double aligned(double length, double origin, double available, Alignment alignment) {
    switch (alignment) {
        case Alignment::Start:
            return origin;
        case Alignment::End:
            return origin + available - length;
        case Alignment::Middle:
            break;
    }
    return origin + (available - length) / 2;
}

Alignment horizontalAlignment(UIViewContentMode mode) {
    switch (mode) {
        case UIViewContentModeLeft:
        case UIViewContentModeTopLeft:
        case UIViewContentModeBottomLeft:
            return Alignment::Start;
        case UIViewContentModeRight:
        case UIViewContentModeTopRight:
        case UIViewContentModeBottomRight:
            return Alignment::End;
        default:
            return Alignment::Middle;
    }
}

Alignment verticalAlignment(UIViewContentMode mode) {
    switch (mode) {
        case UIViewContentModeTop:
        case UIViewContentModeTopLeft:
        case UIViewContentModeTopRight:
            return Alignment::Start;
        case UIViewContentModeBottom:
        case UIViewContentModeBottomLeft:
        case UIViewContentModeBottomRight:
            return Alignment::End;
        default:
            return Alignment::Middle;
    }
}

}  // namespace

Rect contentRectForMode(Size size, Rect bounds, UIViewContentMode mode) {
    Size shown = size;
    switch (mode) {
        case UIViewContentModeScaleToFill:
        case UIViewContentModeRedraw:
            return bounds;
        case UIViewContentModeScaleAspectFit:
        case UIViewContentModeScaleAspectFill: {
            if (size.width <= 0 || size.height <= 0) {
                return {{bounds.origin.x + bounds.size.width / 2,
                         bounds.origin.y + bounds.size.height / 2},
                        {0, 0}};
            }
            double across = bounds.size.width / size.width;
            double down = bounds.size.height / size.height;
            double factor = mode == UIViewContentModeScaleAspectFit ? std::min(across, down)
                                                                    : std::max(across, down);
            shown = {size.width * factor, size.height * factor};
            break;
        }
        default:
            break;
    }
    return {{aligned(shown.width, bounds.origin.x, bounds.size.width, horizontalAlignment(mode)),
             aligned(shown.height, bounds.origin.y, bounds.size.height, verticalAlignment(mode))},
            shown};
}

UIImageView::UIImageView(Rect frame) : UIView(frame) {
    setUserInteractionEnabled(false);
}

UIImageView::UIImageView(std::optional<UIImage> image)
    : UIImageView(Rect{{0, 0}, image ? image->size() : Size{}}) {
    image_ = std::move(image);
}

void UIImageView::setImage(std::optional<UIImage> image) {
    image_ = std::move(image);
    setNeedsDisplay();
}

void UIImageView::setContentMode(UIViewContentMode mode) {
    contentMode_ = mode;
    setNeedsDisplay();
}

void UIImageView::drawRect(cairo_t* context, Rect) {
    if (!image_) {
        return;
    }
    image_->drawInRect(context, contentRectForMode(image_->size(), bounds(), contentMode_),
                       tintColor());
}

void UIImageView::tintColorDidChange() {
    if (image_ && image_->renderingMode() == UIImageRenderingModeAlwaysTemplate) {
        setNeedsDisplay();
    }
}

}  // namespace tarvik
