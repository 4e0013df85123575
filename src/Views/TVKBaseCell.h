#pragma once

#include "Kit/UIFont.h"
#include "Kit/UITableViewCell.h"

#include <memory>
#include <string>
#include <vector>

namespace tarvik {

// The comments form's rows. Every cell class answers the same class methods, each for its own
// class (a subclass declares again those whose answer differs): `reuseIdentifier`, the class's
// own name, which the form registers it under; `rowHeight`; `textViewFont`, the font text is
// measured in; `heightForText` and `rowHeightForText`, the height `text` takes in
// `textViewFont` within `maxWidth` and at most `rowHeight`, rounded up to a whole point.
//
// The form's cells show no selection, have no separator inset and no layout margins, and draw
// a one-point line across their top (`borderView`) in the tool bars' border colour.
class TVKBaseCell : public UITableViewCell {
    TVK_KIT_CLASS(TVKBaseCell, UITableViewCell)

  public:
    static std::string reuseIdentifier() { return staticClass().name; }
    static double rowHeight() { return 44.0; }
    static UIFont textViewFont();
    static double heightForText(const std::string& text, double maxWidth) {
        return boundingHeightOfText(text, maxWidth, rowHeight());
    }
    static double rowHeightForText(const std::string& text, double maxWidth) {
        return heightForText(text, maxWidth);
    }

    explicit TVKBaseCell(UITableViewCellStyle style = UITableViewCellStyleDefault,
                         std::string reuseIdentifier = {});

    std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const override;

  protected:
    // The height of `text`'s bounding rectangle in `textViewFont`, wrapped within `maxWidth`,
    // keeping the lines that fit in `maxHeight`, rounded up to a whole point.
    static double boundingHeightOfText(const std::string& text, double maxWidth, double maxHeight);

    // A line 1 point high at the top of the cell, twice as wide as the cell was when made, so
    // that it still spans a wider table (a turned screen).
    const std::shared_ptr<UIView>& borderView() const { return borderView_; }

  private:
    std::shared_ptr<UIView> borderView_;
};

}  // namespace tarvik
