#pragma once

#include "Platform/Accelerometer.h"

#include <mutex>
#include <optional>
#include <string>

namespace tarvik {

// The kernel's industrial-I/O accelerometer, read through sysfs: the first device under
// "<root>/bus/iio/devices" that has "in_accel_x_raw" and "in_accel_y_raw". A reading is
// (raw + offset) × scale in m/s² per axis (the shared "in_accel_scale" or "in_accel_offset", or
// the axis's own), turned to the device's axes by "in_accel_mount_matrix" when there is one, and
// divided by 9.80665 to give g.
class IioAccelerometer : public Accelerometer {
  public:
    // The sysfs root: the environment's TARVIK_SYSFS_ROOT when set (so that a test or a demo can
    // give the SDK a virtual accelerometer made of files), else "/sys".
    static std::string sysfsRootFromEnvironment();

    explicit IioAccelerometer(std::string sysfsRoot);
    bool isAvailable() override;
    std::optional<Acceleration> read() override;

  private:
    std::string sysfsRoot_;
};

}  // namespace tarvik
