#include "Kit/UIBarButtonItem.h"

namespace tarvik {

std::shared_ptr<UIBarButtonItem> UIBarButtonItem::initWithCustomView(std::shared_ptr<UIView> view) {
    auto item = std::make_shared<UIBarButtonItem>();
    item->customView_ = std::move(view);
    return item;
}

std::shared_ptr<UIBarButtonItem> UIBarButtonItem::initWithTitle(
    std::string title, UIBarButtonItemStyle style, const std::shared_ptr<NSObject>& target,
    std::optional<Selector> action) {
    auto item = std::make_shared<UIBarButtonItem>();
    item->title_ = std::move(title);
    item->style_ = style;
    item->target_ = target;
    item->action_ = std::move(action);
    return item;
}

}  // namespace tarvik
