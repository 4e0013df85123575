#pragma once

#include "Platform/Accelerometer.h"

#include <array>
#include <mutex>
#include <optional>
#include <string>

namespace tarvik {

// The kernel's industrial-I/O accelerometer, read through sysfs: the first device under
// "<root>/bus/iio/devices" (in name order) that has "in_accel_x_raw" and "in_accel_y_raw". A
// reading is (raw + offset) × scale in m/s² per axis (the axis's own "in_accel_x_scale" or
// "in_accel_x_offset", else the shared "in_accel_scale" or "in_accel_offset", else 1 and 0),
// turned to the device's axes by "in_accel_mount_matrix" when there is one, and divided by
// 9.80665 to give g. "in_accel_z_raw" is optional (0 when the device has none).
//
// The device is looked for, and its scales, offsets and matrix read, once; after that a reading
// only opens, reads and closes the raw files. A failed reading gives none and the next one tries
// again; when the device's folder has gone, the device is forgotten and the next call looks for
// one anew. While no device is known, every call looks. Safe to call from any thread.
class IioAccelerometer : public Accelerometer {
  public:
    // The sysfs root: the environment's TARVIK_SYSFS_ROOT when set (so that a test or a demo can
    // give the SDK a virtual accelerometer made of files), else "/sys".
    static std::string sysfsRootFromEnvironment();

    explicit IioAccelerometer(std::string sysfsRoot);
    bool isAvailable() override;
    std::optional<Acceleration> read() override;

  private:
    // What a reading needs of the device, found once.
    struct Device {
        std::string folder;
        // The raw files of x, y and z; z's is empty when the device has none.
        std::array<std::string, 3> rawPaths;
        std::array<double, 3> scales{1, 1, 1};
        std::array<double, 3> offsets{0, 0, 0};
        // Device axis i = row i · the sensor's axes.
        std::array<std::array<double, 3>, 3> mountMatrix{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
    };

    static std::optional<Device> findDevice(const std::string& sysfsRoot);
    std::optional<Acceleration> readLocked();

    std::string sysfsRoot_;
    std::mutex mutex_;
    std::optional<Device> device_;
};

}  // namespace tarvik
