#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tarvik {

struct Notification {
    std::string name;
    std::shared_ptr<void> object;    // the sender's object, or none
    std::shared_ptr<void> userInfo;  // details of the notification, or none

    template <class T>
    std::shared_ptr<T> objectAs() const {
        return std::static_pointer_cast<T>(object);
    }
    template <class T>
    std::shared_ptr<T> userInfoAs() const {
        return std::static_pointer_cast<T>(userInfo);
    }
};

// Delivers named notifications to their observers, synchronously on the posting thread.
class NotificationCenter {
  public:
    using Handler = std::function<void(const Notification&)>;
    using Token = std::uint64_t;

    Token addObserver(std::string name, Handler handler);
    void removeObserver(Token token);
    void post(std::string name, std::shared_ptr<void> object = nullptr,
              std::shared_ptr<void> userInfo = nullptr);

  private:
    struct Observer {
        Token token;
        std::string name;
        std::shared_ptr<Handler> handler;
    };

    std::mutex mutex_;
    std::vector<Observer> observers_;
    Token nextToken_ = 1;
};

}  // namespace tarvik
