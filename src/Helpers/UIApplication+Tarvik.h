#pragma once

#include "Kit/UIApplication.h"
#include "Platform/Image.h"

#include <tarvik/Value.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvik {

// The host application's icon: the first of the main bundle's "CFBundleIcons" →
// "CFBundlePrimaryIcon" → "CFBundleIconFiles", loaded by name from the bundle. None when a key
// is missing or of another kind, the list is empty, or no such image loads.
std::optional<Image> tarvik_appIcon();

// Interaction tracking on the application: what the user did before a report, written to the
// user-tracking log. The SDK's wrappers run first on the application's dispatch methods, write
// their lines, then call the implementation they wrap with the same arguments and answer its
// result unchanged.
namespace UIApplicationTarvik {

// Wraps the application's methods, once per runtime however often it is called (a second
// wrapping would log every line twice):
// 1. `sendEvent` and `sendAction`, and each of the 23 delegate messages (launching, URLs, the
//    status bar, notifications, user activities, background work, shortcuts, shares), in that
//    order; a delegate message that the application does not handle is handled from then on,
//    by the wrapper alone;
// 2. each of the 11 life-cycle messages ("applicationDidBecomeActive:" and its kin) and the two
//    registration messages that the application handles at this moment; the others are left
//    alone.
void tarvik_swizzleMethods();

// The wrapper of `sendEvent`: a motion event (type 1), as the simulator sends for its shake
// command, posts "TarvikNotificationDidShakeInSimulator"; every event then goes on as it came.
// Nothing is logged.
void tarvik_sendEvent(const std::function<void(UIApplication&, const UIEvent&)>& previous,
                      UIApplication& application, const UIEvent& event);

// The wrapper of `sendAction`: unless the target's class is ignored, logs
// "-[<target class> <action>] from <<sender class>: <sender address>>" and, when the target's
// own class holds the sender in a variable, " (ivar: <its name>)".
bool tarvik_sendAction(
    const std::function<bool(UIApplication&, const Selector&, const std::shared_ptr<NSObject>&,
                             const std::shared_ptr<NSObject>&, const UIEvent*)>& previous,
    UIApplication& application, const Selector& action, const std::shared_ptr<NSObject>& target,
    const std::shared_ptr<NSObject>& sender, const UIEvent* event);

// The action line, for the toolkit's dispatch and for hosts that report their own actions.
std::string tarvik_actionLine(std::string_view targetClassName, std::string_view actionName,
                              std::string_view senderClassName, const void* senderAddress,
                              const std::optional<std::string>& senderVariableName);

// Logs "-[<receiver class> <selector>]".
void tarvik_logSelectorCall(std::string_view receiverClassName, std::string_view selector);

// The name of the first variable, in declaration order, that `container`'s own class (not its
// superclasses) declares and that holds `object` itself (not an equal object); none when none
// does.
std::optional<std::string> tarvik_propertyName(const std::shared_ptr<NSObject>& object,
                                               const NSObject& container);

// False for the nine classes whose actions are never logged: the reporter's own controls and
// screens, and the system's keyboard and rotation controllers. Exact classes: a subclass of
// one is logged.
bool tarvik_shouldLogActionToClass(std::string_view className);
const std::array<std::string_view, 9>& tarvik_classNameIgnoreList();

// Logs what the application received with a tracked message: "-[<application class>
// <selector>]", then the message's own lines about its arguments (those after the application),
// such as "-> url: <url>". False, and nothing logged, for a message tracking does not know.
bool tarvik_logApplicationMessage(std::string_view applicationClassName, std::string_view selector,
                                  const Array& arguments);

}  // namespace UIApplicationTarvik

}  // namespace tarvik
