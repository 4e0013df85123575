#include "Views/TVKTextViewCell.h"

namespace tarvik {

void TVKTextViewCell::setTextView(std::shared_ptr<TVKTextView> view) {
    textView_ = std::move(view);
    contentView()->addSubview(textView_);
    contentView()->addSubview(borderView());
    setNeedsLayout();
}

void TVKTextViewCell::layoutSubviews() {
    TVKBaseCell::layoutSubviews();
    if (textView_) {
        const Size size = bounds().size;
        textView_->setFrame({{16, 8}, {size.width - 16, size.height - 8}});
    }
}

std::vector<InstanceVariable> TVKTextViewCell::instanceVariablesDeclaredBy(
    const KitClass& kitClass) const {
    if (&kitClass != &staticClass()) {
        return TVKBaseCell::instanceVariablesDeclaredBy(kitClass);
    }
    return {{"_textView", asObject(textView_)}};
}

}  // namespace tarvik
