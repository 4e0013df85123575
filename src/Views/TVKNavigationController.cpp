#include "Views/TVKNavigationController.h"

#include "Helpers/NSBundle+Tarvik.h"
#include "Helpers/UIColor+Tarvik.h"
#include "Helpers/UIImage+Tarvik.h"
#include "Kit/UIFont.h"

namespace tarvik {

void TVKNavigationController::viewDidLoad() {
    UINavigationController::viewDidLoad();
    CALayerStyle style = view()->layer();
    style.cornerRadius = 8.0;
    view()->setLayerStyle(style);
    view()->setClipsToBounds(true);

    std::shared_ptr<UINavigationBar> bar = navigationBar();
    std::optional<UIImage> back = UIImage::imageNamed("back", tarvik_frameworkBundle());
    if (back) {
        back = back->imageWithRenderingMode(UIImageRenderingModeAlwaysOriginal);
    }
    bar->setBackIndicatorImage(back);
    bar->setBackIndicatorTransitionMaskImage(back);
    TextAttributes title;
    title.font = UIFont::fontWithName("HelveticaNeue-Bold", 16.0);
    title.foregroundColor = tarvik_darkTextColor();
    bar->setTitleTextAttributes(title);
    std::optional<Image> white = tarvik_imageWithColor(Color::colorWithRed(1, 1, 1, 1));
    bar->setBackgroundImage(white ? std::optional<UIImage>(UIImage(*white)) : std::nullopt,
                            UIBarMetricsDefault);
    // An empty image: no hairline under the bar.
    std::optional<Image> empty = Image::blank(0, 0, 1, Image::Transparent);
    bar->setShadowImage(empty ? std::optional<UIImage>(UIImage(*empty)) : std::nullopt);
}

}  // namespace tarvik
