#pragma once

#include "Kit/UITableView.h"
#include "Kit/UIViewController.h"

#include <memory>

namespace tarvik {

// A controller whose view is a table of the given style, the size of the screen, with the
// controller as its data source and delegate. Subclasses answer the table's questions; the
// base has no rows.
class UITableViewController : public UIViewController,
                              public UITableViewDataSource,
                              public UITableViewDelegate {
    TVK_KIT_CLASS(UITableViewController, UIViewController)

  public:
    explicit UITableViewController(UITableViewStyle style = UITableViewStylePlain)
        : style_(style) {}

    std::shared_ptr<UITableView> tableView();

    void loadView() override;

    long numberOfRowsInSection(UITableView&, long) override { return 0; }
    std::shared_ptr<UITableViewCell> cellForRowAtIndexPath(UITableView&,
                                                           const NSIndexPath&) override {
        return nullptr;
    }

  private:
    UITableViewStyle style_;
};

}  // namespace tarvik
