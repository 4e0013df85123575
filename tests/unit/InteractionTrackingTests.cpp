#include <tarvik/TarvikConstants.h>
#include <tarvik/Tracking.h>

#include "Helpers/TVKLogger.h"
#include "Helpers/UIApplication+Tarvik.h"
#include "Helpers/UIViewController+Tarvik.h"
#include "Kit/UIButton.h"
#include "Kit/UINavigationController.h"
#include "Platform/Testing/TestRuntime.h"
#include "Views/TVKButton.h"
#include "support/TrackingLog.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace tarvik {
namespace {

using ::testing::ElementsAre;
using testsupport::trackingLogMessages;

// A host screen whose own class holds its pay button twice over (the second by accident).
class CheckoutViewController : public UIViewController {
    TVK_KIT_CLASS(CheckoutViewController, UIViewController)

  public:
    std::shared_ptr<UIButton> payButton = UIButton::buttonWithType(UIButtonTypeSystem);
    std::shared_ptr<UIButton> strayButton = UIButton::buttonWithType(UIButtonTypeSystem);
    int payments = 0;

    void pay(const std::shared_ptr<UIButton>&) { ++payments; }
    void viewWillAppear(bool animated) override {
        UIViewController::viewWillAppear(animated);
        TVKLogger::logMessage("the screen's own viewWillAppear");
    }
    std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const override {
        if (&kitClass != &staticClass()) {
            return UIViewController::instanceVariablesDeclaredBy(kitClass);
        }
        return {{"_payButton", asObject(payButton)}, {"_samePayButton", asObject(payButton)}};
    }
};

// Holds a button of its own; its superclass holds the pay button.
class ExpressCheckoutViewController : public CheckoutViewController {
    TVK_KIT_CLASS(ExpressCheckoutViewController, CheckoutViewController)

  public:
    std::shared_ptr<UIButton> expressButton = UIButton::buttonWithType(UIButtonTypeSystem);
    std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const override {
        if (&kitClass != &staticClass()) {
            return CheckoutViewController::instanceVariablesDeclaredBy(kitClass);
        }
        return {{"_expressButton", asObject(expressButton)}};
    }
};

class HostButton : public TVKButton {
    TVK_KIT_CLASS(HostButton, TVKButton)

  public:
    int presses = 0;
    void press() { ++presses; }
};

class CartNavigationController : public UINavigationController {
    TVK_KIT_CLASS(CartNavigationController, UINavigationController)

  public:
    using UINavigationController::UINavigationController;
};

Selector paySelector() {
    return Selector::method("pay:", &CheckoutViewController::pay);
}

std::string address(const void* object) {
    return fmt::format("{}", object);
}

void press(UIButton& button) {
    button.sendActionsForControlEvents(UIControlEventTouchUpInside);
}

class InteractionTracking : public ::testing::Test {
  protected:
    InteractionTracking() { std::filesystem::create_directories(TVKLogger::tempLogsDirectory()); }
    static void install() {
        UIApplicationTarvik::tarvik_swizzleMethods();
        UIViewControllerTarvik::tarvik_swizzleMethods();
    }
    testing::TestRuntime test;
};

TEST_F(InteractionTracking, ActionsNameTheSendersVariableInTheTargetsOwnClassOnly) {
    install();
    auto checkout = std::make_shared<CheckoutViewController>();
    auto express = std::make_shared<ExpressCheckoutViewController>();
    for (const auto& [button, target] :
         {std::pair{checkout->payButton, checkout}, std::pair{checkout->strayButton, checkout},
          std::pair{express->payButton, std::static_pointer_cast<CheckoutViewController>(express)},
          std::pair{express->expressButton,
                    std::static_pointer_cast<CheckoutViewController>(express)}}) {
        button->addTarget(target, paySelector(), UIControlEventTouchUpInside);
        press(*button);
    }

    EXPECT_EQ(checkout->payments, 2);
    EXPECT_EQ(express->payments, 2);
    EXPECT_THAT(
        trackingLogMessages(),
        ElementsAre("-[CheckoutViewController pay:] from <UIButton: " +
                        address(checkout->payButton.get()) + "> (ivar: _payButton)",
                    "-[CheckoutViewController pay:] from <UIButton: " +
                        address(checkout->strayButton.get()) + ">",
                    "-[ExpressCheckoutViewController pay:] from <UIButton: " +
                        address(express->payButton.get()) + ">",
                    "-[ExpressCheckoutViewController pay:] from <UIButton: " +
                        address(express->expressButton.get()) + "> (ivar: _expressButton)"));
}

TEST_F(InteractionTracking, ActionsIgnoreExactClassesAndScreensIgnoreKinds) {
    install();
    auto sdkButton = TVKButton::buttonWithType(UIButtonTypeCustom);
    auto hostButton = std::make_shared<HostButton>();
    auto sender = UIButton::buttonWithType(UIButtonTypeSystem);
    for (const std::shared_ptr<NSObject>& target : {asObject(sdkButton), asObject(hostButton)}) {
        UIApplication::sharedApplication().sendAction(Selector::method("press", &HostButton::press),
                                                      target, sender, nullptr);
    }
    EXPECT_EQ(hostButton->presses, 1);

    auto checkout = std::make_shared<CheckoutViewController>();
    auto cart = std::make_shared<CartNavigationController>(checkout);
    cart->view();
    cart->beginAppearanceTransition(true, false);  // the screen it holds appears with it
    // A host's own report of its screens follows the same rules.
    trackScreen("OrdersTabController", {"UITabBarController", "UIViewController"});
    trackScreen("OrdersViewController", {"UIViewController"});

    EXPECT_THAT(
        trackingLogMessages(),
        ElementsAre("-[HostButton press] from <UIButton: " + address(sender.get()) + ">",
                    "the screen's own viewWillAppear", "-[CheckoutViewController viewWillAppear:]",
                    "-[OrdersViewController viewWillAppear:]"));
}

TEST_F(InteractionTracking, WrappersRunFirstAndHandOnTheSameArgumentsAndResultOnce) {
    // What the application did before tracking: it refuses the action, whatever the target.
    struct Received {
        int calls = 0;
        std::size_t linesBefore = 0;
        const Selector* action = nullptr;
        NSObject* target = nullptr;
        NSObject* sender = nullptr;
        const UIEvent* event = nullptr;
    } received;
    UIApplication::methods().sendAction.interpose(
        [&](const auto&, UIApplication&, const Selector& action,
            const std::shared_ptr<NSObject>& target, const std::shared_ptr<NSObject>& sender,
            const UIEvent* event) {
            received = {received.calls + 1,
                        trackingLogMessages().size(),
                        &action,
                        target.get(),
                        sender.get(),
                        event};
            return false;
        });
    Array openedWith;
    std::size_t linesBeforeOpening = 0;
    UIApplication::methods()
        .message("application:openURL:options:")
        .implement([&](UIApplication&, const Array& arguments) {
            openedWith = arguments;
            linesBeforeOpening = trackingLogMessages().size();
            return Value(true);
        });
    install();
    install();  // a second installation changes nothing

    auto checkout = std::make_shared<CheckoutViewController>();
    Selector pay = paySelector();
    UIEvent event(UIEventType::Touches, UIEventSubtype::None, {}, 0);
    bool delivered =
        UIApplication::sharedApplication().sendAction(pay, checkout, checkout->payButton, &event);
    Array arguments{"myapp://cart?id=7", Dictionary{{"source", "mail"}}};
    Value opened = UIApplication::sharedApplication().sendApplicationMessage(
        "application:openURL:options:", arguments);

    EXPECT_FALSE(delivered);
    EXPECT_EQ(received.calls, 1);
    EXPECT_EQ(received.linesBefore, 1u);
    EXPECT_EQ(received.action, &pay);
    EXPECT_EQ(received.target, checkout.get());
    EXPECT_EQ(received.sender, checkout->payButton.get());
    EXPECT_EQ(received.event, &event);
    EXPECT_EQ(opened, Value(true));
    EXPECT_EQ(openedWith, arguments);
    EXPECT_EQ(linesBeforeOpening, 4u);
    EXPECT_THAT(trackingLogMessages(),
                ElementsAre(::testing::StartsWith("-[CheckoutViewController pay:] from"),
                            "-[UIApplication application:openURL:options:]",
                            "-> url: myapp://cart?id=7", "-> options: {\n    source = mail;\n}"));
}

TEST_F(InteractionTracking, ApplicationMessagesWriteTheirArgumentLines) {
    UIApplicationMethods& methods = UIApplication::methods();
    int becameActive = 0;
    methods.message("applicationDidBecomeActive:").implement([&](UIApplication&, const Array&) {
        ++becameActive;
        return Value();
    });
    methods.message("application:didRegisterForRemoteNotificationsWithDeviceToken:")
        .implement([](UIApplication&, const Array&) { return Value(); });
    install();
    UIApplication& application = UIApplication::sharedApplication();

    // Life-cycle messages are wrapped only where the application handled them at installation;
    // delegate messages always are.
    application.sendApplicationMessage("applicationDidBecomeActive:");
    application.sendApplicationMessage("applicationWillTerminate:");
    EXPECT_TRUE(application.sendApplicationMessage("application:performFetchWithCompletionHandler:")
                    .isNull());
    application.sendApplicationMessage(
        "application:didRegisterForRemoteNotificationsWithDeviceToken:",
        {Data{0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f, 0x60, 0x71, 0x82}});
    application.sendApplicationMessage("application:didChangeStatusBarOrientation:", {3});
    application.sendApplicationMessage("application:didChangeStatusBarFrame:",
                                       Array{Value(Array{0, 0, 375.5, 20})});
    application.sendApplicationMessage(
        "application:handleActionWithIdentifier:forRemoteNotification:withResponseInfo:"
        "completionHandler:",
        {"reply", Dictionary{{"aps", 1}}, "typed"});
    application.sendApplicationMessage("application:didFailToContinueUserActivityWithType:error:",
                                       {"com.example.browse"});
    // A host that reports its own callbacks gets the same lines.
    EXPECT_TRUE(trackApplicationMessage("application:didRegisterUserNotificationSettings:", {},
                                        "HostApplication"));
    EXPECT_FALSE(trackApplicationMessage("application:didDoSomethingElse:"));

    EXPECT_EQ(becameActive, 1);
    EXPECT_THAT(
        trackingLogMessages(),
        ElementsAre(
            "-[UIApplication applicationDidBecomeActive:]",
            "-[UIApplication application:performFetchWithCompletionHandler:]",
            "-[UIApplication application:didRegisterForRemoteNotificationsWithDeviceToken:]",
            "-> deviceToken: 0a1b2c3d4e5f607182",
            "-[UIApplication application:didChangeStatusBarOrientation:]",
            "-> oldStatusBarOrientation: 3",
            "-[UIApplication application:didChangeStatusBarFrame:]",
            "-> oldStatusBarFrame: {{0, 0}, {375.5, 20}}",
            "-[UIApplication application:handleActionWithIdentifier:forRemoteNotification:"
            "withResponseInfo:completionHandler:]",
            "-> userInfo: {\n    aps = 1;\n}", "-> responseInfo: typed",
            "-[UIApplication application:didFailToContinueUserActivityWithType:error:]",
            "-> userActivityType: com.example.browse",
            "-[HostApplication application:didRegisterUserNotificationSettings:]",
            "-> notificationSettings: (null)"));
}

TEST_F(InteractionTracking, AMotionEventBecomesTheSimulatorShakeAndGoesOnUnchanged) {
    std::vector<UIEventType> dispatched;
    UIApplication::methods().sendEvent.interpose(
        [&](const auto&, UIApplication&, const UIEvent& event) {
            dispatched.push_back(event.type());
        });
    install();
    int shakes = 0;
    test.runtime().notificationCenter().addObserver(TarvikNotificationDidShakeInSimulator,
                                                    [&](const Notification&) { ++shakes; });
    UIApplication& application = UIApplication::sharedApplication();
    application.sendEvent(UIEvent(UIEventType::Motion, UIEventSubtype::MotionShake, {}, 0));
    application.sendEvent(UIEvent(UIEventType::Touches, UIEventSubtype::None, {}, 0));
    trackShakeMotion();  // a host's own shake reaches the main queue
    EXPECT_EQ(shakes, 1);
    test.drain();

    EXPECT_EQ(shakes, 2);
    EXPECT_EQ(dispatched, (std::vector{UIEventType::Motion, UIEventType::Touches}));
    EXPECT_TRUE(trackingLogMessages().empty());  // events themselves are never logged
}

TEST_F(InteractionTracking, AHostsOwnActionsFollowTheActionRulesAsDoActionsWithoutObjects) {
    int sender = 0;
    trackAction("CheckoutViewController", "pay:", "GtkButton", &sender, "pay_button");
    trackAction("TVKButton", "press", "GtkButton", &sender);
    trackAction("OrdersView", "refresh:", "GtkButton", &sender);
    // An action without a target or sender, as the toolkit sends it to the responder chain.
    install();
    UIApplication::sharedApplication().sendAction(
        Selector::method("refresh:", &CheckoutViewController::pay), nullptr, nullptr, nullptr);
    EXPECT_THAT(trackingLogMessages(),
                ElementsAre("-[CheckoutViewController pay:] from <GtkButton: " + address(&sender) +
                                "> (ivar: pay_button)",
                            "-[OrdersView refresh:] from <GtkButton: " + address(&sender) + ">",
                            "-[(null) refresh:] from <(null): 0x0>"));
}

}  // namespace
}  // namespace tarvik
