// What interaction tracking adds to the host's dispatch: an action sent through the application
// (a button's action to a screen that holds the button in a variable) and a screen coming on
// screen, each without the SDK's wrappers ("untracked") and with them ("tracked"), side by side.
// The tracked runs include the log record each writes (open, append, close of the user-tracking
// log, as every record does); the "ignored" run is an action to one of the reporter's own
// classes, which the wrapper only checks by name. On the Testing platform's folders in /tmp.

#include "Helpers/TVKLogger.h"
#include "Helpers/UIApplication+Tarvik.h"
#include "Helpers/UIViewController+Tarvik.h"
#include "Kit/UIApplication.h"
#include "Kit/UIButton.h"
#include "Platform/Testing/TestRuntime.h"
#include "Views/TVKButton.h"

#include <benchmark/benchmark.h>

#include <filesystem>

namespace tarvik {
namespace {

class CheckoutViewController : public UIViewController {
    TVK_KIT_CLASS(CheckoutViewController, UIViewController)

  public:
    std::shared_ptr<UIButton> cancelButton = UIButton::buttonWithType(UIButtonTypeSystem);
    std::shared_ptr<UIButton> payButton = UIButton::buttonWithType(UIButtonTypeSystem);
    int payments = 0;
    void pay(const std::shared_ptr<UIButton>&) { ++payments; }
    std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const override {
        if (&kitClass != &staticClass()) {
            return UIViewController::instanceVariablesDeclaredBy(kitClass);
        }
        return {{"_cancelButton", asObject(cancelButton)}, {"_payButton", asObject(payButton)}};
    }
};

// A runtime of its own, with the wrappers installed or not.
struct Setup {
    explicit Setup(bool tracked) {
        std::filesystem::create_directories(TVKLogger::tempLogsDirectory());
        if (tracked) {
            UIApplicationTarvik::tarvik_swizzleMethods();
            UIViewControllerTarvik::tarvik_swizzleMethods();
        }
    }
    testing::TestRuntime runtime;
};

void sendAction(benchmark::State& state, bool tracked, bool toReporterClass) {
    Setup setup(tracked);
    auto checkout = std::make_shared<CheckoutViewController>();
    std::shared_ptr<NSObject> target = checkout;
    if (toReporterClass) {
        target = TVKButton::buttonWithType(UIButtonTypeCustom);
    }
    Selector pay = Selector::method("pay:", &CheckoutViewController::pay);
    UIApplication& application = UIApplication::sharedApplication();
    for (auto _ : state) {
        benchmark::DoNotOptimize(application.sendAction(pay, target, checkout->payButton, nullptr));
    }
}

void screenAppears(benchmark::State& state, bool tracked) {
    Setup setup(tracked);
    auto checkout = std::make_shared<CheckoutViewController>();
    checkout->view();
    for (auto _ : state) {
        checkout->beginAppearanceTransition(true, false);
        checkout->endAppearanceTransition();
        checkout->beginAppearanceTransition(false, false);
        checkout->endAppearanceTransition();
    }
}

BENCHMARK_CAPTURE(sendAction, untracked, false, false);
BENCHMARK_CAPTURE(sendAction, tracked, true, false);
BENCHMARK_CAPTURE(sendAction, tracked_ignored, true, true);
BENCHMARK_CAPTURE(screenAppears, untracked, false);
BENCHMARK_CAPTURE(screenAppears, tracked, true);

}  // namespace
}  // namespace tarvik

BENCHMARK_MAIN();
