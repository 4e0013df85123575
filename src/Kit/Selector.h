#pragma once

#include "Kit/NSObject.h"
#include "Kit/UITouch.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace tarvik {

// A control's action: the method's name as the phone writes it ("didTapSendButton:", one
// colon per argument), which whoever observes the application's actions sees, and the method
// itself, which applies to targets of one class. Two selectors with the same name are the same
// action.
class Selector {
  public:
    // Calls the method on `target`; false when the target is not of the method's class.
    using Body = std::function<bool(NSObject& target, const std::shared_ptr<NSObject>& sender,
                                    const UIEvent* event)>;

    Selector(std::string name, Body body) : name_(std::move(name)), body_(std::move(body)) {}

    // A method without arguments ("didTapCancelButton").
    template <class Target>
    static Selector method(std::string name, void (Target::*method)()) {
        return Selector(std::move(name), [method](NSObject& target, const auto&, const auto*) {
            auto* typed = dynamic_cast<Target*>(&target);
            if (typed) {
                (typed->*method)();
            }
            return typed != nullptr;
        });
    }

    // A method that takes the sender ("didTapColorOptionButton:"); a sender of another class
    // arrives as none.
    template <class Target, class Sender>
    static Selector method(std::string name,
                           void (Target::*method)(const std::shared_ptr<Sender>& sender)) {
        return Selector(
            std::move(name),
            [method](NSObject& target, const std::shared_ptr<NSObject>& sender, const UIEvent*) {
                auto* typed = dynamic_cast<Target*>(&target);
                if (typed) {
                    (typed->*method)(std::dynamic_pointer_cast<Sender>(sender));
                }
                return typed != nullptr;
            });
    }

    const std::string& name() const { return name_; }
    bool perform(NSObject& target, const std::shared_ptr<NSObject>& sender,
                 const UIEvent* event) const {
        return body_(target, sender, event);
    }

    bool operator==(const Selector& other) const { return name_ == other.name_; }

  private:
    std::string name_;
    Body body_;
};

}  // namespace tarvik
