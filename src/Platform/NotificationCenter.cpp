#include "Platform/NotificationCenter.h"

#include <algorithm>

namespace tarvik {

NotificationCenter::Token NotificationCenter::addObserver(std::string name, Handler handler) {
    std::lock_guard lock(mutex_);
    Token token = nextToken_++;
    observers_.push_back({token, std::move(name), std::make_shared<Handler>(std::move(handler))});
    return token;
}

void NotificationCenter::removeObserver(Token token) {
    std::lock_guard lock(mutex_);
    std::erase_if(observers_, [token](const Observer& o) { return o.token == token; });
}

void NotificationCenter::post(std::string name, std::shared_ptr<void> object,
                              std::shared_ptr<void> userInfo) {
    std::vector<std::shared_ptr<Handler>> handlers;
    {
        std::lock_guard lock(mutex_);
        for (const Observer& observer : observers_) {
            if (observer.name == name) {
                handlers.push_back(observer.handler);
            }
        }
    }
    // Handlers run outside the lock so that they may post or observe in turn.
    Notification notification{std::move(name), std::move(object), std::move(userInfo)};
    for (const auto& handler : handlers) {
        (*handler)(notification);
    }
}

}  // namespace tarvik
