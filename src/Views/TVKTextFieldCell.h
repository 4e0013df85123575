#pragma once

#include "Views/TVKBaseCell.h"
#include "Views/TVKTextField.h"

#include <memory>
#include <string>

namespace tarvik {

// The form's e-mail row, 56 points high: its field fills the whole cell (the field's own
// 16-point left view indents the text), under the line at the top.
class TVKTextFieldCell : public TVKBaseCell {
    TVK_KIT_CLASS(TVKTextFieldCell, TVKBaseCell)

  public:
    static std::string reuseIdentifier() { return staticClass().name; }
    static double rowHeight() { return 56.0; }
    static double heightForText(const std::string& text, double maxWidth) {
        return boundingHeightOfText(text, maxWidth, rowHeight());
    }
    static double rowHeightForText(const std::string& text, double maxWidth) {
        return heightForText(text, maxWidth);
    }

    using TVKBaseCell::TVKBaseCell;

    const std::shared_ptr<TVKTextField>& textField() const { return textField_; }
    // Puts `field` and the line over it into the content view and asks for layout.
    void setTextField(std::shared_ptr<TVKTextField> field);

    void layoutSubviews() override;
    std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const override;

  private:
    std::shared_ptr<TVKTextField> textField_;
};

}  // namespace tarvik
