#include "Views/TVKBaseCell.h"

#include "Helpers/UIColor+Tarvik.h"
#include "Kit/Render/TextLayout.h"

#include <cmath>

namespace tarvik {

UIFont TVKBaseCell::textViewFont() {
    return *UIFont::fontWithName("HelveticaNeue-Bold", 16.0);
}

double TVKBaseCell::boundingHeightOfText(const std::string& text, double maxWidth,
                                         double maxHeight) {
    const UIFont font = textViewFont();
    TextStyle style;
    style.font = font;
    const TextLayout layout(NSAttributedString(text, {.font = font}), style, maxWidth, maxHeight);
    return std::ceil(layout.size().height);
}

TVKBaseCell::TVKBaseCell(UITableViewCellStyle style, std::string reuseIdentifier)
    : UITableViewCell(style, std::move(reuseIdentifier)),
      borderView_(std::make_shared<UIView>(Rect{{0, 0}, {bounds().size.width * 2, 1}})) {
    setSelectionStyle(UITableViewCellSelectionStyleNone);
    setSeparatorInset({});
    setLayoutMargins({});
    borderView_->setBackgroundColor(tarvik_drawContainerBorderColor());
}

std::vector<InstanceVariable> TVKBaseCell::instanceVariablesDeclaredBy(
    const KitClass& kitClass) const {
    if (&kitClass != &staticClass()) {
        return UITableViewCell::instanceVariablesDeclaredBy(kitClass);
    }
    return {{"_borderView", asObject(borderView_)}};
}

}  // namespace tarvik
