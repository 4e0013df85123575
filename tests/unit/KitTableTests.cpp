#include "Kit/UIApplication.h"
#include "Kit/UITableViewController.h"
#include "Kit/UIWindow.h"
#include "Platform/Testing/TestRuntime.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace tarvik {
namespace {

struct CellCounts {
    int made = 0;
    int reused = 0;
};

class CountingCell : public UITableViewCell {
  public:
    CountingCell(const std::string& identifier, CellCounts& counts)
        : UITableViewCell(UITableViewCellStyleDefault, identifier), counts_(counts) {
        ++counts_.made;
    }
    void prepareForReuse() override { ++counts_.reused; }

  private:
    CellCounts& counts_;
};

// The comments form's shape: a 56-point row, a 240-point row, then rows of the table's
// default height.
class FormController : public UITableViewController {
  public:
    FormController() : UITableViewController(UITableViewStyleGrouped) {}

    long rows = 20;
    CellCounts counts;

    void viewDidLoad() override {
        tableView()->registerClass(
            [this](const std::string& identifier) {
                return std::make_shared<CountingCell>(identifier, counts);
            },
            "Cell");
    }
    long numberOfRowsInSection(UITableView&, long) override { return rows; }
    std::shared_ptr<UITableViewCell> cellForRowAtIndexPath(UITableView& table,
                                                           const NSIndexPath& path) override {
        auto cell = table.dequeueReusableCellWithIdentifier("Cell", path);
        cell->textLabel()->setText("Row " + std::to_string(path.row));
        return cell;
    }
    std::optional<double> heightForRowAtIndexPath(UITableView&, const NSIndexPath& path) override {
        if (path.row == 0) {
            return 56;
        }
        return path.row == 1 ? std::optional(240.0) : std::nullopt;
    }
};

TEST(KitTableView, RowsHeightsVisibleCellsReuseAndScrolling) {
    testing::TestRuntime runtime;
    auto window = std::make_shared<UIWindow>(Rect{{0, 0}, {375, 300}});
    auto form = std::make_shared<FormController>();
    window->setRootViewController(form);
    window->setHidden(false);
    std::shared_ptr<UITableView> table = form->tableView();
    EXPECT_EQ(table->style(), UITableViewStyleGrouped);
    window->layoutIfNeeded();

    // 35 points of grouped space above the section and 17.5 below it.
    EXPECT_EQ(table->numberOfRowsInSection(0), 20);
    EXPECT_EQ(table->rectForRowAtIndexPath({0, 1}), (Rect{{0, 91}, {375, 240}}));
    EXPECT_EQ(table->rectForRowAtIndexPath({0, 2}), (Rect{{0, 331}, {375, 44}}));
    EXPECT_EQ(table->rectForRowAtIndexPath({0, 20}), Rect{});
    EXPECT_DOUBLE_EQ(table->contentSize().height, 35 + 56 + 240 + 18 * 44 + 17.5);
    EXPECT_EQ(table->visibleCells().size(), 2u);  // rows 0 and 1 fill the 300 points
    EXPECT_EQ(table->cellForRowAtIndexPath({0, 0})->textLabel()->text(), "Row 0");
    EXPECT_EQ(table->cellForRowAtIndexPath({0, 2}), nullptr);

    // The form's inset takes the grouped space away: the first row rests at the top.
    table->setContentInset({-35, 0, 0, 0});
    EXPECT_EQ(table->contentOffset(), (Point{0, 35}));
    std::shared_ptr<UITableViewCell> first = table->cellForRowAtIndexPath({0, 0});
    EXPECT_EQ(first->convertPointToView({0, 0}, nullptr), (Point{0, 0}));

    // A finger dragged up 250 points scrolls the rows under it; cells that left are reused.
    UIApplication& application = UIApplication::sharedApplication();
    application.handleTouch(window, 1, UITouchPhase::Began, {100, 280});
    application.handleTouch(window, 1, UITouchPhase::Moved, {100, 130});
    application.handleTouch(window, 1, UITouchPhase::Moved, {100, 30});
    application.handleTouch(window, 1, UITouchPhase::Ended, {100, 30});
    EXPECT_EQ(table->contentOffset(), (Point{0, 285}));
    window->layoutIfNeeded();
    EXPECT_EQ(table->cellForRowAtIndexPath({0, 0}), nullptr);
    ASSERT_NE(table->cellForRowAtIndexPath({0, 3}), nullptr);
    EXPECT_EQ(table->cellForRowAtIndexPath({0, 3})->textLabel()->text(), "Row 3");
    EXPECT_EQ(table->visibleCells().size(), 7u);  // rows 1 to 7
    EXPECT_EQ(form->counts.reused, 1);            // row 0's cell, for row 2
    EXPECT_EQ(form->counts.made, 7);

    // Dragging far down stops at the end of the content.
    application.handleTouch(window, 1, UITouchPhase::Began, {100, 100});
    application.handleTouch(window, 1, UITouchPhase::Moved, {100, -5000});
    application.handleTouch(window, 1, UITouchPhase::Ended, {100, -5000});
    EXPECT_DOUBLE_EQ(table->contentOffset().y, table->contentSize().height - 300);

    form->rows = 1;
    table->reloadData();
    EXPECT_EQ(table->contentOffset(), (Point{0, 35}));
    EXPECT_EQ(table->visibleCells().size(), 1u);
    EXPECT_THROW(table->dequeueReusableCellWithIdentifier("Other", {0, 0}), std::invalid_argument);
}

}  // namespace
}  // namespace tarvik
