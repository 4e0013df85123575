#include "Kit/UINavigationItem.h"

namespace tarvik {

void UINavigationItem::setTitle(std::string title) {
    title_ = std::move(title);
    changed();
}

void UINavigationItem::setTitleView(std::shared_ptr<UIView> view) {
    titleView_ = std::move(view);
    changed();
}

void UINavigationItem::setLeftBarButtonItem(std::shared_ptr<UIBarButtonItem> item) {
    left_ = std::move(item);
    changed();
}

void UINavigationItem::setRightBarButtonItem(std::shared_ptr<UIBarButtonItem> item) {
    right_ = std::move(item);
    changed();
}

void UINavigationItem::setBackBarButtonItem(std::shared_ptr<UIBarButtonItem> item) {
    back_ = std::move(item);
    changed();
}

void UINavigationItem::changed() const {
    if (didChange_) {
        didChange_();
    }
}

}  // namespace tarvik
