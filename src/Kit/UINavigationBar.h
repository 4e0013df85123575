#pragma once

#include "Kit/NSAttributedString.h"
#include "Kit/UIImage.h"
#include "Kit/UIImageView.h"
#include "Kit/UILabel.h"
#include "Kit/UINavigationItem.h"
#include "Kit/UIView.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace tarvik {

// With the phone's values. Bars here are always of the default height, so only images for the
// default metrics are drawn.
enum UIBarMetrics : long {
    UIBarMetricsDefault = 0,
    UIBarMetricsCompact = 1,
};

class UINavigationBarBackButton;

// The bar across the top of a navigation controller, 44 points high, laid out as the phone's:
// the top item's title (or title view) centred on the bar, kept clear of the items beside it;
// its left item, or else a back button for the item under it, 16 points from the left edge
// (20 on bars 414 points or wider); its right item as far from the right edge. The back
// button shows the back indicator image 8 points from the edge and, 6 points after it, the
// title of the item under the top one: that item's back item's title when it has one (an
// empty one shows the image alone), else its own title, else "Back". Tapping it calls the
// back handler. Item titles and the back button take the bar's tint colour; template images
// (and the default back indicator) too.
//
// The background reaches up behind the status bar: the background image stretched, or the
// phone's light grey without one. Under the bar's bottom edge lies a one-pixel grey hairline,
// or the shadow image stretched across the bar; an empty shadow image shows nothing.
class UINavigationBar : public UIView {
    TVK_KIT_CLASS(UINavigationBar, UIView)

  public:
    static constexpr double kHeight = 44;

    explicit UINavigationBar(Rect frame = {});
    ~UINavigationBar() override;

    // The title's font and colour; what is not set is the phone's bold 17-point black.
    const TextAttributes& titleTextAttributes() const { return titleAttributes_; }
    void setTitleTextAttributes(TextAttributes attributes);
    std::optional<UIImage> backIndicatorImage() const { return backIndicatorImage_; }
    void setBackIndicatorImage(std::optional<UIImage> image);
    // Kept for the phone's transitions, which mask the back title with it as it slides; the
    // bar here changes its items without sliding, so nothing draws it.
    std::optional<UIImage> backIndicatorTransitionMaskImage() const { return backIndicatorMask_; }
    void setBackIndicatorTransitionMaskImage(std::optional<UIImage> image);
    std::optional<UIImage> backgroundImageForBarMetrics(UIBarMetrics metrics) const;
    void setBackgroundImage(std::optional<UIImage> image, UIBarMetrics metrics);
    std::optional<UIImage> shadowImage() const { return shadowImage_; }
    void setShadowImage(std::optional<UIImage> image);

    // The items shown: the top one and the one under it, which the back button stands for.
    void setItems(std::shared_ptr<UINavigationItem> top, std::shared_ptr<UINavigationItem> back);
    std::shared_ptr<UINavigationItem> topItem() const { return top_; }
    std::shared_ptr<UINavigationItem> backItem() const { return back_; }
    // Called when the back button is tapped.
    void setBackButtonHandler(std::function<void()> handler) { backHandler_ = std::move(handler); }

    // How far the background reaches above the bar's top edge: behind the status bar.
    void setBackgroundExtension(double height);

    // The views that show the items right now, for whoever needs their place: none when the
    // bar shows no such thing.
    std::shared_ptr<UIView> leftItemView() const { return leftView_; }
    std::shared_ptr<UIView> rightItemView() const { return rightView_; }
    std::shared_ptr<UIView> backButtonView() const;
    std::shared_ptr<UILabel> titleLabel() const { return titleLabel_; }

    void layoutSubviews() override;

  private:
    void installSubviews();
    void itemsChanged();
    void updateBackground();
    void updateShadow();
    // The view of `item` (its custom view, or a button with its title), in place of `shown`.
    void showItemView(const std::shared_ptr<UIBarButtonItem>& item, std::shared_ptr<UIView>& shown);
    std::string backTitle() const;
    void didTapBackButton();

    TextAttributes titleAttributes_;
    std::optional<UIImage> backIndicatorImage_;
    std::optional<UIImage> backIndicatorMask_;
    std::map<UIBarMetrics, UIImage> backgroundImages_;
    std::optional<UIImage> shadowImage_;
    std::shared_ptr<UINavigationItem> top_;
    std::shared_ptr<UINavigationItem> back_;
    std::function<void()> backHandler_;
    double backgroundExtension_ = 0;
    std::shared_ptr<UIImageView> background_;
    std::shared_ptr<UIImageView> shadow_;
    std::shared_ptr<UILabel> titleLabel_;
    std::shared_ptr<UIView> titleView_;
    std::shared_ptr<UINavigationBarBackButton> backButton_;
    std::shared_ptr<UIView> leftView_;
    std::shared_ptr<UIView> rightView_;
};

}  // namespace tarvik
