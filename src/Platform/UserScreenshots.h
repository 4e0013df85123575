#pragma once

#include <functional>

namespace tarvik {

// Tells the SDK when the user takes a screenshot with the system's own tool, which in the
// screenshot-triggered mode opens the reporter.
class UserScreenshots {
  public:
    virtual ~UserScreenshots() = default;
    // From now on calls `didTakeScreenshot`, on a thread of the platform's, for each screenshot
    // the user takes. A later call replaces the callback.
    virtual void watch(std::function<void()> didTakeScreenshot) = 0;
};

}  // namespace tarvik
