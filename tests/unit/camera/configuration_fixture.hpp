#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "camera/camera/configuration.hpp"
#include "tests/support/temporary_folder.hpp"

namespace camera {

/// Configuration files and what is read of them.
class ConfigurationTest : public ::testing::Test {
  protected:
    /// Sensors as "NAME ID TEMPERATURE, …", and all that the file's mistakes print.
    std::string sensors(const std::string& text) {
        common::Diagnostics diagnostics("camera.toml");
        const Configuration read = read_configuration(folder_.write("c", text), diagnostics);
        std::ostringstream out;
        diagnostics.print(out, false);
        printed_ = out.str();
        std::ostringstream list;
        power_ = read.power;
        video_ = read.video;
        for (const Sensor& sensor : read.sensors)
            list << sensor.name << ' ' << sensor.id << ' ' << sensor.temperature << ", ";
        return list.str();
    }

    /// What is printed for a file with one sensor of these lines, without the count.
    std::string mistake(const std::string& lines) {
        (void)sensors("[[sensors]]\n" + lines);
        const std::string count = "camera.toml: 1 error\n";
        EXPECT_TRUE(printed_.ends_with(count)) << printed_;
        return printed_.substr(0, printed_.size() - std::min(printed_.size(), count.size()));
    }

    test::TemporaryFolder folder_;
    std::string printed_;
    Power power_;
    Video video_;
};

}  // namespace camera
