#pragma once

#include "Kit/NSObject.h"
#include "Kit/UIView.h"

#include <memory>

namespace tarvik {

// An item of a bar: here, a view of the caller's own that the bar places at one of its edges.
class UIBarButtonItem : public NSObject {
    TVK_KIT_CLASS(UIBarButtonItem, NSObject)

  public:
    static std::shared_ptr<UIBarButtonItem> initWithCustomView(std::shared_ptr<UIView> view);

    std::shared_ptr<UIView> customView() const { return customView_; }

  private:
    std::shared_ptr<UIView> customView_;
};

}  // namespace tarvik
