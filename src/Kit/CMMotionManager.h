#pragma once

#include "Platform/Accelerometer.h"

#include <optional>

namespace tarvik {

// The device's motion data as the phone's motion manager gives it, over the platform's
// accelerometer. While updates run the hardware takes a sample every update interval; the
// manager keeps only the latest, which stays readable after the updates stop. The platform's
// sensor is read on demand, so the last sample of a run that lasted at least one interval is
// read when it is first asked for: a run whose data nobody looks at costs no reading. Not
// thread-safe: its owner serialises it.
class CMMotionManager {
  public:
    explicit CMMotionManager(Accelerometer& accelerometer) : accelerometer_(accelerometer) {}

    bool isAccelerometerAvailable() const { return accelerometer_.isAvailable(); }
    void setAccelerometerUpdateInterval(double seconds) { updateInterval_ = seconds; }

    void startAccelerometerUpdates();
    void stopAccelerometerUpdates();
    // The latest sample; none before the first, and none after a run whose reading failed (a
    // stale sample would otherwise be seen again and again).
    std::optional<Acceleration> accelerometerData();

  private:
    Accelerometer& accelerometer_;
    double updateInterval_ = 0.01;
    std::optional<double> runStart_;  // media time, while updates run
    bool sampleToRead_ = false;       // a run ended whose last sample is not read yet
    std::optional<Acceleration> latest_;
};

}  // namespace tarvik
