#pragma once

#include "Kit/NSIndexPath.h"
#include "Kit/UIScrollView.h"
#include "Kit/UITableViewCell.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarvik {

class UITableView;

// With the phone's values.
enum UITableViewStyle : long {
    UITableViewStylePlain = 0,
    UITableViewStyleGrouped = 1,
};

enum UITableViewCellSeparatorStyle : long {
    UITableViewCellSeparatorStyleNone = 0,
    UITableViewCellSeparatorStyleSingleLine = 1,
};

// Where a table's rows come from.
class UITableViewDataSource {
  public:
    virtual ~UITableViewDataSource() = default;
    virtual long numberOfSections(UITableView&) { return 1; }
    virtual long numberOfRowsInSection(UITableView& tableView, long section) = 0;
    // Usually a cell from `dequeueReusableCellWithIdentifier`.
    virtual std::shared_ptr<UITableViewCell> cellForRowAtIndexPath(
        UITableView& tableView, const NSIndexPath& indexPath) = 0;
};

// What a table asks about its rows' look.
class UITableViewDelegate {
  public:
    virtual ~UITableViewDelegate() = default;
    // None leaves the row at the table's `rowHeight`.
    virtual std::optional<double> heightForRowAtIndexPath(UITableView&, const NSIndexPath&) {
        return std::nullopt;
    }
};

using UITableViewCellFactory =
    std::function<std::shared_ptr<UITableViewCell>(const std::string& reuseIdentifier)>;

// A scrolling list of rows in sections, as wide as the table. It asks its data source for
// the counts and the rows' cells and its delegate for their heights when it first lays out
// and at each `reloadData`, and keeps a cell only for each row that shows: cells that scroll
// out go back to a pool per reuse identifier. A grouped table sets its sections apart on a
// grey background: 35 points above the first, 35 between sections and 17.5 below the last.
// Rows cannot be selected yet.
class UITableView : public UIScrollView {
    TVK_KIT_CLASS(UITableView, UIScrollView)

  public:
    static constexpr double kDefaultRowHeight = 44;

    explicit UITableView(Rect frame = {}, UITableViewStyle style = UITableViewStylePlain);

    UITableViewStyle style() const { return style_; }
    // Neither is kept alive by the table.
    void setDataSource(std::weak_ptr<UITableViewDataSource> dataSource);
    void setDelegate(std::weak_ptr<UITableViewDelegate> delegate);
    double rowHeight() const { return rowHeight_; }
    void setRowHeight(double height);
    UITableViewCellSeparatorStyle separatorStyle() const { return separatorStyle_; }
    void setSeparatorStyle(UITableViewCellSeparatorStyle style);

    // How cells for `identifier` are made.
    void registerClass(UITableViewCellFactory factory, const std::string& identifier);
    template <class Cell>
    void registerClass(const std::string& identifier) {
        registerClass(
            [](const std::string& reuseIdentifier) {
                return std::make_shared<Cell>(UITableViewCellStyleDefault, reuseIdentifier);
            },
            identifier);
    }
    // A cell from the pool for `identifier`, or a new one, framed for `indexPath`'s row.
    // Throws std::invalid_argument for an identifier that has no registered class.
    std::shared_ptr<UITableViewCell> dequeueReusableCellWithIdentifier(
        const std::string& identifier, const NSIndexPath& indexPath);

    // Asks the data source and delegate again and shows what they answer.
    void reloadData();
    long numberOfSections();
    long numberOfRowsInSection(long section);
    // The row's place in content coordinates; an empty rectangle for a row that is not there.
    Rect rectForRowAtIndexPath(const NSIndexPath& indexPath);
    // The cell of a row that shows; none for a row out of view.
    std::shared_ptr<UITableViewCell> cellForRowAtIndexPath(const NSIndexPath& indexPath) const;
    std::vector<std::shared_ptr<UITableViewCell>> visibleCells() const;

    void layoutSubviews() override;

  private:
    struct Section {
        std::vector<double> rowTops;
        std::vector<double> rowHeights;
    };

    void loadRowsIfNeeded();
    void enqueue(const std::shared_ptr<UITableViewCell>& cell);

    UITableViewStyle style_;
    std::weak_ptr<UITableViewDataSource> dataSource_;
    std::weak_ptr<UITableViewDelegate> delegate_;
    double rowHeight_ = kDefaultRowHeight;
    UITableViewCellSeparatorStyle separatorStyle_ = UITableViewCellSeparatorStyleSingleLine;
    std::map<std::string, UITableViewCellFactory> factories_;
    std::map<std::string, std::vector<std::shared_ptr<UITableViewCell>>> reusePool_;
    std::optional<std::vector<Section>> sections_;
    std::map<NSIndexPath, std::shared_ptr<UITableViewCell>> visible_;
};

}  // namespace tarvik
