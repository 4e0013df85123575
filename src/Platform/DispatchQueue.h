#pragma once

#include <functional>

namespace tarvik {

// A concurrent background queue: tasks run on worker threads, in no promised order.
class DispatchQueue {
  public:
    virtual ~DispatchQueue() = default;
    virtual void async(std::function<void()> task) = 0;
};

}  // namespace tarvik
