#include "Helpers/UIApplication+Tarvik.h"

#include "Helpers/TVKLogger.h"
#include "Platform/Runtime.h"

#include <tarvik/TarvikConstants.h>

#include <fmt/format.h>

#include <algorithm>

namespace tarvik {

std::optional<Image> tarvik_appIcon() {
    Bundle bundle = Runtime::current().platform().mainBundle();
    const Dictionary& info = bundle.infoDictionary();
    auto icons = info.find("CFBundleIcons");
    if (icons == info.end()) {
        return std::nullopt;
    }
    // Value::find answers null for a missing key and for a value that is not a dictionary.
    const Value* primaryIcon = icons->second.find("CFBundlePrimaryIcon");
    const Value* iconFiles =
        primaryIcon != nullptr ? primaryIcon->find("CFBundleIconFiles") : nullptr;
    if (iconFiles == nullptr || !iconFiles->isArray() || iconFiles->asArray()->empty()) {
        return std::nullopt;
    }
    const std::string* firstIconFile = iconFiles->asArray()->front().asString();
    if (firstIconFile == nullptr) {
        return std::nullopt;
    }
    return Image::imageNamed(*firstIconFile, bundle);
}

namespace UIApplicationTarvik {
namespace {

// How one of a message's arguments is written after its selector-call line.
enum class Form {
    Object,       // its description
    Integer,      // a whole number
    Rectangle,    // an array of x, y, width and height, as "{{x, y}, {width, height}}"
    DeviceToken,  // its bytes as one run of hexadecimal digits
};

struct ArgumentLine {
    std::string_view label;
    std::size_t argument;  // among the arguments after the application
    Form form = Form::Object;
};

struct TrackedMessage {
    std::string_view selector;
    std::vector<ArgumentLine> lines;
};

// The delegate messages, in the order they are wrapped. Identifiers and completion handlers
// are never logged.
const std::vector<TrackedMessage>& delegateMessages() {
    static const std::vector<TrackedMessage> messages{
        {"application:didFinishLaunchingWithOptions:", {{"launchOptions", 0}}},
        {"application:willFinishLaunchingWithOptions:", {{"launchOptions", 0}}},
        {"application:openURL:sourceApplication:annotation:",
         {{"url", 0}, {"sourceApplication", 1}}},
        {"application:openURL:options:", {{"url", 0}, {"options", 1}}},
        {"application:didChangeStatusBarOrientation:",
         {{"oldStatusBarOrientation", 0, Form::Integer}}},
        {"application:didChangeStatusBarFrame:", {{"oldStatusBarFrame", 0, Form::Rectangle}}},
        {"application:didFailToRegisterForRemoteNotificationsWithError:", {{"error", 0}}},
        {"application:didReceiveRemoteNotification:", {{"userInfo", 0}}},
        {"application:didReceiveLocalNotification:", {{"notification", 0}}},
        {"application:handleActionWithIdentifier:forLocalNotification:completionHandler:",
         {{"notification", 1}}},
        {"application:handleActionWithIdentifier:forLocalNotification:withResponseInfo:"
         "completionHandler:",
         {{"notification", 1}}},
        {"application:handleActionWithIdentifier:forRemoteNotification:completionHandler:",
         {{"userInfo", 1}}},
        {"application:handleActionWithIdentifier:forRemoteNotification:withResponseInfo:"
         "completionHandler:",
         {{"userInfo", 1}, {"responseInfo", 2}}},
        {"application:didReceiveRemoteNotification:fetchCompletionHandler:", {{"userInfo", 0}}},
        {"application:handleWatchKitExtensionRequest:reply:", {{"userInfo", 0}}},
        {"application:willContinueUserActivityWithType:", {{"userActivityType", 0}}},
        {"application:continueUserActivity:restorationHandler:", {{"userActivity", 0}}},
        {"application:didFailToContinueUserActivityWithType:error:", {{"userActivityType", 0}}},
        {"application:didUpdateUserActivity:", {{"userActivity", 0}}},
        {"application:performFetchWithCompletionHandler:", {}},
        {"application:performActionForShortcutItem:completionHandler:", {}},
        {"application:handleEventsForBackgroundURLSession:completionHandler:", {}},
        {"application:userDidAcceptCloudKitShareWithMetadata:", {}},
    };
    return messages;
}

const std::vector<TrackedMessage>& lifeCycleMessages() {
    static const std::vector<TrackedMessage> messages{
        {"applicationDidBecomeActive:", {}},
        {"applicationDidEnterBackground:", {}},
        {"applicationWillTerminate:", {}},
        {"applicationWillResignActive:", {}},
        {"applicationWillEnterForeground:", {}},
        {"applicationDidFinishLaunching:", {}},
        {"applicationDidReceiveMemoryWarning:", {}},
        {"applicationSignificantTimeChange:", {}},
        {"applicationShouldRequestHealthAuthorization:", {}},
        {"applicationProtectedDataWillBecomeUnavailable:", {}},
        {"applicationProtectedDataDidBecomeAvailable:", {}},
    };
    return messages;
}

const std::vector<TrackedMessage>& registrationMessages() {
    static const std::vector<TrackedMessage> messages{
        {"application:didRegisterUserNotificationSettings:", {{"notificationSettings", 0}}},
        {"application:didRegisterForRemoteNotificationsWithDeviceToken:",
         {{"deviceToken", 0, Form::DeviceToken}}},
    };
    return messages;
}

const TrackedMessage* trackedMessage(std::string_view selector) {
    for (const auto* messages :
         {&delegateMessages(), &lifeCycleMessages(), &registrationMessages()}) {
        auto found = std::find_if(messages->begin(), messages->end(),
                                  [&](const TrackedMessage& m) { return m.selector == selector; });
        if (found != messages->end()) {
            return &*found;
        }
    }
    return nullptr;
}

// A token's description is its bytes in hexadecimal, in groups between angle brackets; without
// the brackets and blanks that is the plain run of digits a push service expects.
std::string deviceTokenText(const Value& token) {
    std::string text;
    if (const Data* bytes = token.asData()) {
        for (std::uint8_t byte : *bytes) {
            text += fmt::format("{:02x}", byte);
        }
        return text;
    }
    for (char c : token.isNull() ? std::string("(null)") : token.description()) {
        if (c != '<' && c != '>' && c != ' ') {
            text += c;
        }
    }
    return text;
}

std::string rectangleText(const Value& rectangle) {
    const Array* sides = rectangle.asArray();
    if (sides == nullptr || sides->size() != 4 ||
        !std::all_of(sides->begin(), sides->end(), [](const Value& v) { return v.isNumber(); })) {
        return rectangle.isNull() ? "(null)" : rectangle.description();
    }
    auto number = [&](std::size_t i) { return numberDescription((*sides)[i].doubleValue()); };
    return fmt::format("{{{{{}, {}}}, {{{}, {}}}}}", number(0), number(1), number(2), number(3));
}

std::string argumentText(const Array& arguments, const ArgumentLine& line) {
    static const Value missing;
    const Value& argument = line.argument < arguments.size() ? arguments[line.argument] : missing;
    switch (line.form) {
        case Form::Integer:
            return std::to_string(argument.integerValue());
        case Form::Rectangle:
            return rectangleText(argument);
        case Form::DeviceToken:
            return deviceTokenText(argument);
        case Form::Object:
            break;
    }
    // A missing object is written as the platform writes nil.
    return argument.isNull() ? "(null)" : argument.description();
}

using MessageImplementation = UIApplicationMethods::Message::Implementation;

void wrapMessage(UIApplicationMethods::Message& message, std::string_view selector) {
    message.interpose([selector](const MessageImplementation& previous, UIApplication& application,
                                 const Array& arguments) {
        tarvik_logApplicationMessage(application.className(), selector, arguments);
        return previous(application, arguments);
    });
}

struct SwizzleToken {};

}  // namespace

void tarvik_swizzleMethods() {
    Runtime::current().sharedInstance<SwizzleToken>([] {
        UIApplicationMethods& methods = UIApplication::methods();
        methods.sendEvent.interpose(tarvik_sendEvent);
        methods.sendAction.interpose(tarvik_sendAction);
        for (const TrackedMessage& tracked : delegateMessages()) {
            wrapMessage(methods.message(std::string(tracked.selector)), tracked.selector);
        }
        for (const auto* messages : {&lifeCycleMessages(), &registrationMessages()}) {
            for (const TrackedMessage& tracked : *messages) {
                UIApplicationMethods::Message& message =
                    methods.message(std::string(tracked.selector));
                if (message.isImplemented()) {
                    wrapMessage(message, tracked.selector);
                }
            }
        }
        return std::make_shared<SwizzleToken>();
    });
}

void tarvik_sendEvent(const std::function<void(UIApplication&, const UIEvent&)>& previous,
                      UIApplication& application, const UIEvent& event) {
    if (event.type() == UIEventType::Motion) {
        Runtime::current().notificationCenter().post(TarvikNotificationDidShakeInSimulator);
    }
    previous(application, event);
}

bool tarvik_sendAction(
    const std::function<bool(UIApplication&, const Selector&, const std::shared_ptr<NSObject>&,
                             const std::shared_ptr<NSObject>&, const UIEvent*)>& previous,
    UIApplication& application, const Selector& action, const std::shared_ptr<NSObject>& target,
    const std::shared_ptr<NSObject>& sender, const UIEvent* event) {
    // An action without a target goes to the responder chain; the platform names its target
    // as nil, whose class is nil, which no ignore-list entry matches.
    std::string targetClass = target ? target->className() : "(null)";
    if (tarvik_shouldLogActionToClass(targetClass)) {
        TVKLogger::logMessage(tarvik_actionLine(
            targetClass, action.name(), sender ? sender->className() : "(null)", sender.get(),
            target ? tarvik_propertyName(sender, *target) : std::nullopt));
    }
    return previous(application, action, target, sender, event);
}

std::string tarvik_actionLine(std::string_view targetClassName, std::string_view actionName,
                              std::string_view senderClassName, const void* senderAddress,
                              const std::optional<std::string>& senderVariableName) {
    std::string line = fmt::format("-[{} {}] from <{}: {}>", targetClassName, actionName,
                                   senderClassName, senderAddress);
    if (senderVariableName) {
        line += fmt::format(" (ivar: {})", *senderVariableName);
    }
    return line;
}

void tarvik_logSelectorCall(std::string_view receiverClassName, std::string_view selector) {
    TVKLogger::logMessage(fmt::format("-[{} {}]", receiverClassName, selector));
}

std::optional<std::string> tarvik_propertyName(const std::shared_ptr<NSObject>& object,
                                               const NSObject& container) {
    if (!object) {
        return std::nullopt;
    }
    for (const InstanceVariable& variable :
         container.instanceVariablesDeclaredBy(container.objectClass())) {
        if (variable.value == object) {
            return variable.name;
        }
    }
    return std::nullopt;
}

const std::array<std::string_view, 9>& tarvik_classNameIgnoreList() {
    static const std::array<std::string_view, 9> names{
        "TVKInstructionAlertView",
        "TVKConfirmationAlertView",
        "TVKTextView",
        "TVKTextField",
        "TVKButton",
        "TVKCommentsTableViewController",
        "TVKScreenshotViewController",
        "UICompatibilityInputViewController",
        "UIApplicationRotationFollowingControllerNoTouches",
    };
    return names;
}

bool tarvik_shouldLogActionToClass(std::string_view className) {
    const auto& ignored = tarvik_classNameIgnoreList();
    return std::find(ignored.begin(), ignored.end(), className) == ignored.end();
}

bool tarvik_logApplicationMessage(std::string_view applicationClassName, std::string_view selector,
                                  const Array& arguments) {
    const TrackedMessage* tracked = trackedMessage(selector);
    if (tracked == nullptr) {
        return false;
    }
    tarvik_logSelectorCall(applicationClassName, tracked->selector);
    for (const ArgumentLine& line : tracked->lines) {
        TVKLogger::logMessage(fmt::format("-> {}: {}", line.label, argumentText(arguments, line)));
    }
    return true;
}

}  // namespace UIApplicationTarvik

}  // namespace tarvik
