#include "Kit/UITableViewController.h"

#include "Kit/UIScreen.h"

namespace tarvik {

std::shared_ptr<UITableView> UITableViewController::tableView() {
    return std::static_pointer_cast<UITableView>(view());
}

void UITableViewController::loadView() {
    auto table = std::make_shared<UITableView>(UIScreen::mainScreen().bounds(), style_);
    auto self = std::static_pointer_cast<UITableViewController>(shared_from_this());
    table->setDataSource(std::static_pointer_cast<UITableViewDataSource>(self));
    table->setDelegate(std::static_pointer_cast<UITableViewDelegate>(self));
    setView(table);
}

}  // namespace tarvik
