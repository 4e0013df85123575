#include "Kit/UIBarButtonItem.h"

namespace tarvik {

std::shared_ptr<UIBarButtonItem> UIBarButtonItem::initWithCustomView(std::shared_ptr<UIView> view) {
    auto item = std::make_shared<UIBarButtonItem>();
    item->customView_ = std::move(view);
    return item;
}

}  // namespace tarvik
