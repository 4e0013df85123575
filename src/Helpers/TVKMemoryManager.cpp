#include "Helpers/TVKMemoryManager.h"

#include "Helpers/TVKLogger.h"
#include "Platform/Runtime.h"
#include "Platform/SystemNotifications.h"

#include <fmt/format.h>

namespace tarvik {

std::shared_ptr<TVKMemoryManager> TVKMemoryManager::sharedInstance() {
    return Runtime::current().sharedInstance<TVKMemoryManager>();
}

void TVKMemoryManager::beginWatchingMemory() {
    sharedInstance();
}

TVKMemoryManager::TVKMemoryManager()
    : notificationCenter_(Runtime::current().notificationCenter()) {
    observer_ = notificationCenter_.addObserver(
        UIApplicationDidReceiveMemoryWarningNotification, [this](const Notification& notification) {
            didReceiveMemoryWarningNotification(notification);
        });
    // The platform reports pressure on a thread of its own; the warning, like the system's,
    // is posted on the main queue.
    Runtime& runtime = Runtime::current();
    runtime.platform().device().watchMemoryPressure(
        [&mainQueue = runtime.mainQueue(), &center = notificationCenter_] {
            mainQueue.async(
                [&center] { center.post(UIApplicationDidReceiveMemoryWarningNotification); });
        });
}

TVKMemoryManager::~TVKMemoryManager() {
    notificationCenter_.removeObserver(observer_);
}

void TVKMemoryManager::didReceiveMemoryWarningNotification(const Notification&) {
    TVKLogger::logMessage("Received memory warning notification.");
    if (std::optional<std::uint64_t> resident =
            Runtime::current().platform().device().residentSize()) {
        TVKLogger::logMessage(fmt::format("Memory in use (in bytes): {}", *resident));
    } else {
        TVKLogger::logMessage("Error with task_info(): the resident size cannot be read");
    }
}

}  // namespace tarvik
