#pragma once

#include "Kit/NSAttributedString.h"
#include "Kit/UILabel.h"
#include "Kit/UINavigationItem.h"
#include "Kit/UIView.h"

#include <functional>
#include <memory>
#include <optional>

namespace tarvik {

// The bar across the top of a navigation controller: the top item's title in the middle, its
// left item (or else a back button for the item under it) at the left edge and its right item
// at the right edge, over a background that reaches up behind the status bar.
class UINavigationBar : public UIView {
    TVK_KIT_CLASS(UINavigationBar, UIView)

  public:
    static constexpr double kHeight = 44;

    explicit UINavigationBar(Rect frame = {});
    ~UINavigationBar() override;

    // The title's font and colour; what is not set is the phone's bold 17-point black.
    const TextAttributes& titleTextAttributes() const { return titleAttributes_; }
    void setTitleTextAttributes(TextAttributes attributes);

    // The items shown: the top one and the one under it, which the back button stands for.
    void setItems(std::shared_ptr<UINavigationItem> top, std::shared_ptr<UINavigationItem> back);
    std::shared_ptr<UINavigationItem> topItem() const { return top_; }
    std::shared_ptr<UINavigationItem> backItem() const { return back_; }
    // Called when the back button is tapped.
    void setBackButtonHandler(std::function<void()> handler) { backHandler_ = std::move(handler); }

    // How far the background reaches above the bar's top edge: behind the status bar.
    void setBackgroundExtension(double height);

    void layoutSubviews() override;

  private:
    void installSubviews();
    void itemsChanged();
    void showItemView(const std::shared_ptr<UIBarButtonItem>& item, std::shared_ptr<UIView>& shown);

    TextAttributes titleAttributes_;
    std::shared_ptr<UINavigationItem> top_;
    std::shared_ptr<UINavigationItem> back_;
    std::function<void()> backHandler_;
    double backgroundExtension_ = 0;
    std::shared_ptr<UIView> background_;
    std::shared_ptr<UILabel> titleLabel_;
    std::shared_ptr<UIView> leftView_;
    std::shared_ptr<UIView> rightView_;
};

}  // namespace tarvik
