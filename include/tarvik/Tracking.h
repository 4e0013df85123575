#pragma once

#include <tarvik/Value.h>

#include <optional>
#include <string>
#include <vector>

// Interaction tracking for a host whose interface the SDK does not dispatch itself. Each report
// carries the user's steps before it ("user_tracking_logs.txt"): the actions the host's controls
// sent, the screens that appeared and the application's life-cycle callbacks. The actions and
// screens of interfaces built on the SDK's toolkit are tracked without any call, and so are the
// callbacks a platform layer hands to the toolkit's application; any other host reports its
// own, with the same lines and the same ignore rules. Safe from any thread; lines keep the order
// of the calls.
//
//     // A button held in the checkout screen's variable _payButton sent pay: to that screen.
//     tarvik::trackAction("CheckoutViewController", "pay:", "UIButton", button, "_payButton");
//     // The checkout screen is about to appear, after the host's own handling of it.
//     tarvik::trackScreen("CheckoutViewController", {"UIViewController"});
//     // The application became active.
//     tarvik::trackApplicationMessage("applicationDidBecomeActive:");
//     tarvik::trackApplicationMessage("application:openURL:options:",
//                                     {"myapp://cart", tarvik::Dictionary{}});
namespace tarvik {

// `sender` (of class `senderClass`) sent `action` ("pay:") to an object of class `targetClass`.
// `senderVariable` names the variable of the target's own class that holds the sender, if one
// does. Nothing is logged for the SDK's own reporter classes.
void trackAction(const std::string& targetClass, const std::string& action,
                 const std::string& senderClass, const void* sender,
                 const std::optional<std::string>& senderVariable = std::nullopt);

// A screen of class `screenClass`, whose superclasses are `superclasses` (nearest first), is
// about to appear. Containers that only hold screens ("UINavigationController",
// "UITabBarController" or a subclass) and the SDK's reporter are not logged.
void trackScreen(const std::string& screenClass, const std::vector<std::string>& superclasses = {});

// The application received the life-cycle or delegate callback `selector`
// ("applicationDidBecomeActive:", "application:openURL:options:", ...) with `arguments`, those
// after the application itself in the selector's order. False, and nothing logged, for a
// selector that tracking does not know. The application is named `applicationClass`.
bool trackApplicationMessage(const std::string& selector, const Array& arguments = {},
                             const std::string& applicationClass = "UIApplication");

// The user shook the device where the host, not the SDK, notices it (a desktop's stand-in key,
// a simulator): in the shake mode this opens the reporter, as a shake the SDK detects does.
void trackShakeMotion();

}  // namespace tarvik
