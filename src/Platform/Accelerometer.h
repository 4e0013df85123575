#pragma once

#include <optional>

namespace tarvik {

// An acceleration along the device's axes, in units of g (9.80665 m/s²), as the phone's motion
// manager reports it: x to the right, y up the screen, z out of it.
struct Acceleration {
    double x = 0;
    double y = 0;
    double z = 0;
};

// The device's accelerometer, read on demand. Shake detection polls it a few times a second.
class Accelerometer {
  public:
    virtual ~Accelerometer() = default;
    // Whether the device has an accelerometer that can be read.
    virtual bool isAvailable() = 0;
    // What it measures now; none when there is no accelerometer or the reading fails.
    virtual std::optional<Acceleration> read() = 0;
};

}  // namespace tarvik
