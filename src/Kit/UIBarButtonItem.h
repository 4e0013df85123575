#pragma once

#include "Kit/NSObject.h"
#include "Kit/Selector.h"
#include "Kit/UIView.h"

#include <memory>
#include <optional>
#include <string>

namespace tarvik {

// With the phone's values. A done item's title is bold.
enum UIBarButtonItemStyle : long {
    UIBarButtonItemStylePlain = 0,
    UIBarButtonItemStyleBordered = 1,
    UIBarButtonItemStyleDone = 2,
};

// An item of a bar: a view of the caller's own, or a title in the bar's tint colour whose tap
// sends the item's action to its target through the application, with the item as sender.
// The target is not kept alive.
class UIBarButtonItem : public NSObject {
    TVK_KIT_CLASS(UIBarButtonItem, NSObject)

  public:
    static std::shared_ptr<UIBarButtonItem> initWithCustomView(std::shared_ptr<UIView> view);
    static std::shared_ptr<UIBarButtonItem> initWithTitle(std::string title,
                                                          UIBarButtonItemStyle style,
                                                          const std::shared_ptr<NSObject>& target,
                                                          std::optional<Selector> action);

    std::shared_ptr<UIView> customView() const { return customView_; }
    const std::string& title() const { return title_; }
    UIBarButtonItemStyle style() const { return style_; }
    std::shared_ptr<NSObject> target() const { return target_.lock(); }
    const std::optional<Selector>& action() const { return action_; }

  private:
    std::shared_ptr<UIView> customView_;
    std::string title_;
    UIBarButtonItemStyle style_ = UIBarButtonItemStylePlain;
    std::weak_ptr<NSObject> target_;
    std::optional<Selector> action_;
};

}  // namespace tarvik
