#include "Views/TVKTextFieldCell.h"

namespace tarvik {

void TVKTextFieldCell::setTextField(std::shared_ptr<TVKTextField> field) {
    textField_ = std::move(field);
    contentView()->addSubview(textField_);
    contentView()->addSubview(borderView());
    setNeedsLayout();
}

void TVKTextFieldCell::layoutSubviews() {
    TVKBaseCell::layoutSubviews();
    if (textField_) {
        textField_->setFrame(bounds());
    }
}

std::vector<InstanceVariable> TVKTextFieldCell::instanceVariablesDeclaredBy(
    const KitClass& kitClass) const {
    if (&kitClass != &staticClass()) {
        return TVKBaseCell::instanceVariablesDeclaredBy(kitClass);
    }
    return {{"_textField", asObject(textField_)}};
}

}  // namespace tarvik
