// Right configurations; those with mistakes are in tests/graphs/configurations.
#include "camera/camera/configuration.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/temporary_folder.hpp"

namespace camera {
namespace {

/// The camera of a file without mistakes, in one line.
std::string camera_of(const std::string& text) {
    const test::TemporaryFolder folder;
    common::Diagnostics diagnostics("camera.toml");
    const Configuration read = read_configuration(folder.write("c", text), diagnostics);
    std::ostringstream line;
    diagnostics.print(line, false);
    for (const Sensor& sensor : read.sensors)
        line << sensor.name << ' ' << sensor.id << ' ' << sensor.temperature << ", ";
    line << "budget " << read.power.budget << ", received " << read.power.received << ", channels "
         << read.video.channels << ", unit " << read.video.unit;
    return line.str();
}

const std::string sensors = "main 3 36.5, lens 4 28, housing 5 21.5, ";
const std::string power = "budget 20, received 25, ";
const std::string video = "channels 2, unit enabled";

TEST(CameraConfiguration, OfAFileLeavesAsItIsWithoutAFileWhatItDoesNotName) {
    const Configuration standard = default_configuration();
    EXPECT_EQ(standard.sensors.size(), 3U);
    EXPECT_EQ(standard.power.budget, 20.0);
    EXPECT_EQ(standard.video.channels, 2);
    for (const char* text : {"", "# nothing\n", "[power]\n[video]\n"})
        EXPECT_EQ(camera_of(text), sensors + power + video) << text;
}

TEST(CameraConfiguration, ReadsSensorsInTheirOrder) {
    EXPECT_EQ(camera_of(R"([[sensors]]
name = "zoom"
id = -2147483648
temperature = -40
[[sensors]]
temperature = inf
id = 2147483647
name = "a b"
)"),
              "zoom -2147483648 -40, a b 2147483647 inf, " + power + video);
    EXPECT_EQ(camera_of("sensors = []\n"), power + video);
}

TEST(CameraConfiguration, ReadsPowerAndVideo) {
    EXPECT_EQ(camera_of("[power]\nbudget = 0\nreceived = -inf\n"),
              sensors + "budget 0, received -inf, " + video);
    EXPECT_EQ(camera_of("[power]\nbudget = 12.5\n"),
              sensors + "budget 12.5, received 25, " + video);
    EXPECT_EQ(camera_of("[video]\nchannels = 64\nunit = \"masked-runtime\"\n"),
              sensors + power + "channels 64, unit masked-runtime");
    EXPECT_EQ(camera_of("[video]\nchannels = 1\nunit = \"\"\n"),
              sensors + power + "channels 1, unit ");
}

}  // namespace
}  // namespace camera
