#pragma once

#include "Platform/NotificationCenter.h"

#include <memory>

namespace tarvik {

// Notes each memory warning in the user-tracking log with the memory the process holds, so
// that a report shows what preceded it. A warning is a memory-warning notification on the
// runtime's notification centre (see Platform/SystemNotifications.h): posted on the main queue
// for each memory-pressure event the platform reports, or by the host itself.
class TVKMemoryManager {
  public:
    static std::shared_ptr<TVKMemoryManager> sharedInstance();
    // Creates the singleton, which starts the watching; later calls change nothing.
    static void beginWatchingMemory();

    // Logs "Received memory warning notification.", then the resident size.
    void didReceiveMemoryWarningNotification(const Notification& notification);

    TVKMemoryManager();
    ~TVKMemoryManager();
    TVKMemoryManager(const TVKMemoryManager&) = delete;
    TVKMemoryManager& operator=(const TVKMemoryManager&) = delete;

  private:
    NotificationCenter& notificationCenter_;
    NotificationCenter::Token observer_;
};

}  // namespace tarvik
