#include <tarvik/TarvikConstants.h>
#include <tarvik/Tracking.h>

#include "Helpers/TVKLogger.h"
#include "Helpers/UIApplication+Tarvik.h"
#include "Helpers/UIViewController+Tarvik.h"
#include "Platform/Runtime.h"

namespace tarvik {

void trackAction(const std::string& targetClass, const std::string& action,
                 const std::string& senderClass, const void* sender,
                 const std::optional<std::string>& senderVariable) {
    if (UIApplicationTarvik::tarvik_shouldLogActionToClass(targetClass)) {
        TVKLogger::logMessage(UIApplicationTarvik::tarvik_actionLine(
            targetClass, action, senderClass, sender, senderVariable));
    }
}

void trackScreen(const std::string& screenClass, const std::vector<std::string>& superclasses) {
    std::vector<std::string_view> chain{screenClass};
    chain.insert(chain.end(), superclasses.begin(), superclasses.end());
    if (UIViewControllerTarvik::tarvik_shouldLogCall(chain)) {
        UIApplicationTarvik::tarvik_logSelectorCall(screenClass, "viewWillAppear:");
    }
}

bool trackApplicationMessage(const std::string& selector, const Array& arguments,
                             const std::string& applicationClass) {
    return UIApplicationTarvik::tarvik_logApplicationMessage(applicationClass, selector, arguments);
}

void trackShakeMotion() {
    // Shake detection, and the reporter it may open, live on the main queue.
    Runtime& runtime = Runtime::current();
    runtime.mainQueue().async([&center = runtime.notificationCenter()] {
        center.post(TarvikNotificationDidShakeInSimulator);
    });
}

}  // namespace tarvik
