#pragma once

#include "Views/TVKBaseCell.h"
#include "Views/TVKTextView.h"

#include <memory>
#include <string>

namespace tarvik {

// The form's description row, 240 points high: its text view starts 16 points from the left
// and 8 from the top and reaches the right and bottom edges.
class TVKTextViewCell : public TVKBaseCell {
    TVK_KIT_CLASS(TVKTextViewCell, TVKBaseCell)

  public:
    static std::string reuseIdentifier() { return staticClass().name; }
    static double rowHeight() { return 240.0; }
    static double heightForText(const std::string& text, double maxWidth) {
        return boundingHeightOfText(text, maxWidth, rowHeight());
    }
    static double rowHeightForText(const std::string& text, double maxWidth) {
        return heightForText(text, maxWidth);
    }

    using TVKBaseCell::TVKBaseCell;

    const std::shared_ptr<TVKTextView>& textView() const { return textView_; }
    // Puts `view` and the line over it into the content view and asks for layout.
    void setTextView(std::shared_ptr<TVKTextView> view);

    void layoutSubviews() override;
    std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const override;

  private:
    std::shared_ptr<TVKTextView> textView_;
};

}  // namespace tarvik
