#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

namespace tarvik {

template <class Signature>
class Interposable;

// A method of the toolkit that whoever observes the application may wrap. The toolkit has no
// run-time method exchange, so the dispatch methods that the SDK observes (the application's
// events, actions and life-cycle messages, a screen's appearance) call through one of these:
// a call reaches the latest wrapper, which is handed the implementation it replaced and decides
// when to call it. Like a method's implementation, it takes the receiver as its first argument.
//
// A method may have no implementation of its own, as an application that does not handle a
// message: calling it does nothing and answers the result type's default. The implementation
// can be given later, under the wrappers already installed. Safe from any thread.
template <class R, class... Args>
class Interposable<R(Args...)> {
  public:
    using Implementation = std::function<R(Args...)>;
    using Wrapper = std::function<R(const Implementation& previous, Args...)>;

    Interposable() : Interposable(Implementation{}) {}
    explicit Interposable(Implementation implementation)
        : base_(std::make_shared<Base>(std::move(implementation))),
          current_(std::make_shared<const Implementation>([base = base_](Args... args) -> R {
              return base->call(std::forward<Args>(args)...);
          })) {}
    Interposable(const Interposable&) = delete;
    Interposable& operator=(const Interposable&) = delete;

    R operator()(Args... args) const {
        std::shared_ptr<const Implementation> current;
        {
            std::lock_guard lock(mutex_);
            current = current_;
        }
        return (*current)(std::forward<Args>(args)...);
    }

    // Whether a call does anything: an implementation was given or a wrapper installed.
    bool isImplemented() const {
        std::lock_guard lock(mutex_);
        return wrapped_ || base_->isImplemented();
    }

    // Makes `wrapper` what a call runs, over whatever ran until now.
    void interpose(Wrapper wrapper) {
        std::lock_guard lock(mutex_);
        current_ = std::make_shared<const Implementation>(
            [previous = current_, wrapper = std::move(wrapper)](Args... args) -> R {
                return wrapper(*previous, std::forward<Args>(args)...);
            });
        wrapped_ = true;
    }

    // Gives the method its own implementation, under the installed wrappers.
    void implement(Implementation implementation) { base_->set(std::move(implementation)); }

  private:
    class Base {
      public:
        explicit Base(Implementation implementation)
            : implementation_(std::make_shared<const Implementation>(std::move(implementation))) {}
        R call(Args... args) const {
            std::shared_ptr<const Implementation> implementation;
            {
                std::lock_guard lock(mutex_);
                implementation = implementation_;
            }
            if (!*implementation) {
                if constexpr (std::is_void_v<R>) {
                    return;
                } else {
                    return R{};
                }
            }
            return (*implementation)(std::forward<Args>(args)...);
        }
        bool isImplemented() const {
            std::lock_guard lock(mutex_);
            return static_cast<bool>(*implementation_);
        }
        void set(Implementation implementation) {
            std::lock_guard lock(mutex_);
            implementation_ = std::make_shared<const Implementation>(std::move(implementation));
        }

      private:
        mutable std::mutex mutex_;
        std::shared_ptr<const Implementation> implementation_;
    };

    std::shared_ptr<Base> base_;
    mutable std::mutex mutex_;
    std::shared_ptr<const Implementation> current_;
    bool wrapped_ = false;
};

}  // namespace tarvik
