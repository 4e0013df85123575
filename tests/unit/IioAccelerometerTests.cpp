#include "Platform/Linux/IioAccelerometer.h"
#include "support/Files.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <thread>

#include <gtest/gtest.h>

namespace tarvik {
namespace {

namespace fs = std::filesystem;

// A sysfs tree of its own per test, in a fresh folder under /tmp.
class IioAccelerometerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char folder[] = "/tmp/tarvik-iio-XXXXXX";
        ASSERT_NE(::mkdtemp(folder), nullptr);
        root_ = folder;
    }
    void TearDown() override { fs::remove_all(root_); }

    std::string device(const std::string& name) const { return root_ + "/bus/iio/devices/" + name; }
    // Writes the device's attribute files (each with the kernel's line break), making its folder.
    void put(const std::string& name, const std::map<std::string, std::string>& files) const {
        fs::create_directories(device(name));
        for (const auto& [file, text] : files) {
            testsupport::writeFile(device(name) + "/" + file, text + "\n");
        }
    }

    std::string root_;
};

// The reading in g matches the m/s² worked out by hand, to 1e-9 of its size.
void expectReading(const std::optional<Acceleration>& reading, double x, double y, double z) {
    ASSERT_TRUE(reading.has_value());
    auto expectG = [](double actual, double metresPerSecondSquared) {
        double expected = metresPerSecondSquared / 9.80665;
        EXPECT_NEAR(actual, expected, 1e-9 * std::max(std::abs(expected), 1e-3));
    };
    expectG(reading->x, x);
    expectG(reading->y, y);
    expectG(reading->z, z);
}

TEST_F(IioAccelerometerTest, ScaleIsTheAxisOwnElseTheSharedOneElseOne) {
    put("iio:device0", {{"in_accel_x_raw", "1000"},
                        {"in_accel_y_raw", "-500"},
                        {"in_accel_z_raw", "250"},
                        {"in_accel_scale", "0.0098"},
                        {"in_accel_y_scale", "0.02"}});
    IioAccelerometer shared(root_);
    EXPECT_TRUE(shared.isAvailable());
    auto reading = shared.read();
    ASSERT_TRUE(reading.has_value());
    expectReading(reading, 9.8, -10, 2.45);
    EXPECT_NEAR(reading->x, 0.9993218887183698, 1e-9);  // 9.8 / 9.80665

    fs::remove_all(device("iio:device0"));
    put("iio:device0", {{"in_accel_x_raw", "3"}, {"in_accel_y_raw", "-7"}});
    expectReading(IioAccelerometer(root_).read(), 3, -7, 0);
}

TEST_F(IioAccelerometerTest, OffsetIsAddedToTheRawValueBeforeScaling) {
    put("iio:device0", {{"in_accel_x_raw", "100"},
                        {"in_accel_y_raw", "0"},
                        {"in_accel_z_raw", "20"},
                        {"in_accel_scale", "0.5"},
                        {"in_accel_offset", "10"},
                        {"in_accel_z_offset", "-20.5"}});
    expectReading(IioAccelerometer(root_).read(), 55, 5, -0.25);

    fs::remove_all(device("iio:device0"));
    put("iio:device0", {{"in_accel_x_raw", "100"},
                        {"in_accel_y_raw", "100"},
                        {"in_accel_x_offset", "-1"},
                        {"in_accel_x_scale", "0.009576806"}});
    expectReading(IioAccelerometer(root_).read(), 99 * 0.009576806, 100, 0);
}

TEST_F(IioAccelerometerTest, MountMatrixTurnsTheSensorAxesIntoTheDeviceAxes) {
    put("iio:device0", {{"in_accel_x_raw", "100"},
                        {"in_accel_y_raw", "200"},
                        {"in_accel_z_raw", "300"},
                        {"in_accel_scale", "0.01"}});
    // A quarter turn: the device's x is the sensor's y, its y the sensor's -x.
    for (const char* matrix : {"0, 1, 0; -1, 0, 0; 0, 0, 1", "0,1,0;-1,0,0;0,0,1"}) {
        SCOPED_TRACE(matrix);
        put("iio:device0", {{"in_accel_mount_matrix", matrix}});
        expectReading(IioAccelerometer(root_).read(), 2, -1, 3);
    }
    // What is not three rows of three numbers, or would flatten the readings, is left out.
    for (const char* matrix : {"0, 1, 0; -1, 0, 0", "0, 1; -1, 0; 0, 0", "0, 1, 0; -1, 0, 0; 0, 0",
                               "0, 1, 0; -1, 0, 0; 0, 0, 1; 1, 0, 0", "0, y, 0; -1, 0, 0; 0, 0, 1",
                               "0, 0, 0; 0, 0, 0; 0, 0, 0", ""}) {
        SCOPED_TRACE(matrix);
        put("iio:device0", {{"in_accel_mount_matrix", matrix}});
        expectReading(IioAccelerometer(root_).read(), 1, 2, 3);
    }
}

TEST_F(IioAccelerometerTest, WithoutAnAccelerometerThereIsNoReading) {
    auto expectNone = [this] {
        IioAccelerometer accelerometer(root_);
        EXPECT_FALSE(accelerometer.isAvailable());
        EXPECT_FALSE(accelerometer.read().has_value());
    };
    {
        SCOPED_TRACE("no devices folder");
        expectNone();
    }
    put("iio:device0", {{"in_accel_x_raw", "1"}, {"in_accel_z_raw", "1"}});
    {
        SCOPED_TRACE("no y");
        expectNone();
    }
    // A scale there but unreadable: a guess of 1 could be off a hundredfold.
    put("iio:device0", {{"in_accel_y_raw", "1"}, {"in_accel_scale", "0,0098"}});
    {
        SCOPED_TRACE("unreadable scale");
        expectNone();
    }
}

TEST_F(IioAccelerometerTest, TheFirstAccelerometerInNameOrderIsRead) {
    // As in sysfs, the entry links to the device's folder.
    std::string real = root_ + "/devices/platform/accel/iio:device1";
    fs::create_directories(real);
    testsupport::writeFile(real + "/in_accel_x_raw", "1\n");
    testsupport::writeFile(real + "/in_accel_y_raw", "1\n");
    fs::create_directories(device(""));
    fs::create_directory_symlink(real, device("iio:device1"));
    // Made after it, so that a folder listed in the order of making (or its reverse) is caught.
    for (std::string n : {"2", "3", "4", "5", "6"}) {
        put("iio:device" + n, {{"in_accel_x_raw", n}, {"in_accel_y_raw", n}});
    }
    put("iio:device0", {{"in_illuminance_raw", "420"}});
    expectReading(IioAccelerometer(root_).read(), 1, 1, 0);
}

TEST_F(IioAccelerometerTest, AFailedReadingGivesNoneAndTheNextOneTriesAgain) {
    std::map<std::string, std::string> files{
        {"in_accel_x_raw", "10"}, {"in_accel_y_raw", "20"}, {"in_accel_z_raw", "30"}};
    put("iio:device0", files);
    IioAccelerometer accelerometer(root_);
    expectReading(accelerometer.read(), 10, 20, 30);
    for (auto [file, text] : {std::pair{"in_accel_x_raw", "garbage"},
                              {"in_accel_y_raw", "12abc"},
                              {"in_accel_z_raw", ""},
                              {"in_accel_x_raw", "1.5"}}) {
        SCOPED_TRACE(file + std::string(" ") + text);
        put("iio:device0", {{file, text}});
        EXPECT_FALSE(accelerometer.read().has_value());
        EXPECT_FALSE(accelerometer.isAvailable());
        put("iio:device0", files);
        expectReading(accelerometer.read(), 10, 20, 30);
    }
    // Gone, then there but unreadable (a folder in its place reads as an error, even for root).
    fs::remove(device("iio:device0/in_accel_y_raw"));
    EXPECT_FALSE(accelerometer.read().has_value());
    fs::create_directory(device("iio:device0/in_accel_y_raw"));
    EXPECT_FALSE(accelerometer.read().has_value());
    fs::remove(device("iio:device0/in_accel_y_raw"));
    put("iio:device0", files);
    expectReading(accelerometer.read(), 10, 20, 30);
}

TEST_F(IioAccelerometerTest, TheDeviceIsFoundOnceAndAgainAfterItHasGone) {
    put("iio:device0", {{"in_accel_x_raw", "10"}, {"in_accel_y_raw", "20"}});
    IioAccelerometer accelerometer(root_);
    expectReading(accelerometer.read(), 10, 20, 0);
    // Scales, offsets and the matrix are read with the device, not with every reading.
    put("iio:device0", {{"in_accel_scale", "2"}, {"in_accel_z_raw", "5"}});
    expectReading(accelerometer.read(), 10, 20, 0);

    fs::remove_all(device("iio:device0"));
    EXPECT_FALSE(accelerometer.read().has_value());
    put("iio:device3", {{"in_accel_x_raw", "1"}, {"in_accel_y_raw", "2"}, {"in_accel_scale", "3"}});
    expectReading(accelerometer.read(), 3, 6, 0);
}

TEST_F(IioAccelerometerTest, ReadingsAndAvailabilityFromTwoThreads) {
    put("iio:device0", {{"in_accel_x_raw", "10"}, {"in_accel_y_raw", "20"}});
    IioAccelerometer accelerometer(root_);
    int available = 0;
    std::thread other([&] {
        for (int i = 0; i < 100; ++i) {
            available += accelerometer.isAvailable();
        }
    });
    for (int i = 0; i < 100; ++i) {
        expectReading(accelerometer.read(), 10, 20, 0);
    }
    other.join();
    EXPECT_EQ(available, 100);
}

}  // namespace
}  // namespace tarvik
