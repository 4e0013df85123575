#pragma once

#include <tarvik/Value.h>

namespace tarvik {

// Wall time for dates, media time (monotonic seconds) for durations.
class Clock {
  public:
    virtual ~Clock() = default;
    virtual Date now() const = 0;
    virtual double mediaTime() const = 0;
};

}  // namespace tarvik
