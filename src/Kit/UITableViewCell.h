#pragma once

#include "Kit/UIEdgeInsets.h"
#include "Kit/UILabel.h"
#include "Kit/UIView.h"

#include <memory>
#include <string>

namespace tarvik {

// With the phone's values; only the default style's single text label is offered.
enum UITableViewCellStyle : long {
    UITableViewCellStyleDefault = 0,
};

// With the phone's values.
enum UITableViewCellSelectionStyle : long {
    UITableViewCellSelectionStyleNone = 0,
    UITableViewCellSelectionStyleBlue = 1,
    UITableViewCellSelectionStyleGray = 2,
    UITableViewCellSelectionStyleDefault = 3,
};

// One row of a table: a white view whose content goes into its content view, which always
// fills it. A table that draws separators has the cell draw a hairline along its bottom,
// inset by the separator inset. Cells are made once per reuse identifier and handed out again
// (after `prepareForReuse`) for rows that scroll into view.
class UITableViewCell : public UIView {
    TVK_KIT_CLASS(UITableViewCell, UIView)

  public:
    explicit UITableViewCell(UITableViewCellStyle style = UITableViewCellStyleDefault,
                             std::string reuseIdentifier = {});

    const std::string& reuseIdentifier() const { return reuseIdentifier_; }
    std::shared_ptr<UIView> contentView();
    // A one-line label in the content view between the left and right layout margins, made
    // on first use.
    std::shared_ptr<UILabel> textLabel();

    // The table keeps no selected rows yet, so no style is ever shown; kept for cells that
    // set it the way the phone's do.
    UITableViewCellSelectionStyle selectionStyle() const { return selectionStyle_; }
    void setSelectionStyle(UITableViewCellSelectionStyle style) { selectionStyle_ = style; }
    UIEdgeInsets separatorInset() const { return separatorInset_; }
    void setSeparatorInset(UIEdgeInsets inset);
    UIEdgeInsets layoutMargins() const { return layoutMargins_; }
    void setLayoutMargins(UIEdgeInsets margins);

    // Called before the table hands the cell out again; the base has nothing to reset.
    virtual void prepareForReuse() {}

    void layoutSubviews() override;
    void drawRect(cairo_t* context, Rect rect) override;

  private:
    friend class UITableView;
    // `fullWidth` ignores the inset: the last row of a grouped section closes it edge to edge.
    void setShowsSeparator(bool shows, bool fullWidth);

    std::string reuseIdentifier_;
    std::shared_ptr<UIView> contentView_;
    std::shared_ptr<UILabel> textLabel_;
    UITableViewCellSelectionStyle selectionStyle_ = UITableViewCellSelectionStyleDefault;
    UIEdgeInsets separatorInset_{0, 15, 0, 0};
    UIEdgeInsets layoutMargins_{8, 15, 8, 15};
    bool showsSeparator_ = false;
    bool separatorFullWidth_ = false;
};

}  // namespace tarvik
