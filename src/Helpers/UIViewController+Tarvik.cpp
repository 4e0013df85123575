#include "Helpers/UIViewController+Tarvik.h"

#include "Helpers/UIApplication+Tarvik.h"
#include "Platform/Runtime.h"

#include <algorithm>

namespace tarvik::UIViewControllerTarvik {
namespace {

struct SwizzleToken {};

std::vector<std::string_view> classChainOf(const NSObject& object) {
    std::vector<std::string_view> chain;
    for (const KitClass* kitClass = &object.objectClass(); kitClass != nullptr;
         kitClass = kitClass->superclass) {
        chain.emplace_back(kitClass->name);
    }
    return chain;
}

}  // namespace

void tarvik_swizzleMethods() {
    Runtime::current().sharedInstance<SwizzleToken>([] {
        UIViewController::methods().viewWillAppear.interpose(tarvik_viewWillAppear);
        return std::make_shared<SwizzleToken>();
    });
}

void tarvik_viewWillAppear(const std::function<void(UIViewController&, bool)>& previous,
                           UIViewController& controller, bool animated) {
    previous(controller, animated);
    if (tarvik_shouldLogCall(controller)) {
        UIApplicationTarvik::tarvik_logSelectorCall(controller.className(), "viewWillAppear:");
    }
}

bool tarvik_shouldLogCall(const std::vector<std::string_view>& classChain) {
    const auto& ignored = tarvik_classNameIgnoreList();
    return std::none_of(classChain.begin(), classChain.end(), [&](std::string_view name) {
        return std::find(ignored.begin(), ignored.end(), name) != ignored.end();
    });
}

bool tarvik_shouldLogCall(const UIViewController& controller) {
    return tarvik_shouldLogCall(classChainOf(controller));
}

const std::array<std::string_view, 7>& tarvik_classNameIgnoreList() {
    static const std::array<std::string_view, 7> names{
        "UITabBarController",
        "UINavigationController",
        "UIInputWindowController",
        "TVKCommentsTableViewController",
        "TVKScreenshotViewController",
        "UICompatibilityInputViewController",
        "UIApplicationRotationFollowingControllerNoTouches",
    };
    return names;
}

}  // namespace tarvik::UIViewControllerTarvik
