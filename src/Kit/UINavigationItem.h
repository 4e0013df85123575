#pragma once

#include "Kit/NSObject.h"
#include "Kit/UIBarButtonItem.h"
#include "Kit/UIView.h"

#include <functional>
#include <memory>
#include <string>

namespace tarvik {

// What a navigation bar shows for one controller: a title (or a view in its place) and the
// items at the bar's edges, plus the item that the next controller's back button takes its
// title from. A bar that shows the item is told of every change.
class UINavigationItem : public NSObject {
    TVK_KIT_CLASS(UINavigationItem, NSObject)

  public:
    explicit UINavigationItem(std::string title = {}) : title_(std::move(title)) {}

    const std::string& title() const { return title_; }
    void setTitle(std::string title);
    std::shared_ptr<UIView> titleView() const { return titleView_; }
    void setTitleView(std::shared_ptr<UIView> view);
    // A left item takes the place of the back button.
    std::shared_ptr<UIBarButtonItem> leftBarButtonItem() const { return left_; }
    void setLeftBarButtonItem(std::shared_ptr<UIBarButtonItem> item);
    std::shared_ptr<UIBarButtonItem> rightBarButtonItem() const { return right_; }
    void setRightBarButtonItem(std::shared_ptr<UIBarButtonItem> item);
    // Only its title is used, by the back button of the controller pushed after this one.
    std::shared_ptr<UIBarButtonItem> backBarButtonItem() const { return back_; }
    void setBackBarButtonItem(std::shared_ptr<UIBarButtonItem> item);

  private:
    friend class UINavigationBar;
    void changed() const;

    std::string title_;
    std::shared_ptr<UIView> titleView_;
    std::shared_ptr<UIBarButtonItem> left_;
    std::shared_ptr<UIBarButtonItem> right_;
    std::shared_ptr<UIBarButtonItem> back_;
    std::function<void()> didChange_;  // set by the bar that shows the item
};

}  // namespace tarvik
