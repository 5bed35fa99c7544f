// Channels and unit of a camera's video, from its file.
#include "tests/unit/camera/configuration_fixture.hpp"

namespace camera {
namespace {

using VideoConfiguration = ConfigurationTest;

TEST_F(VideoConfiguration, WithoutAFileThereAreTwoChannelsAndTheUnitIsEnabled) {
    EXPECT_EQ(default_configuration().video.channels, 2);
    EXPECT_EQ(default_configuration().video.unit, "enabled");
    (void)sensors("[video]\n");
    EXPECT_EQ(video_.channels, 2);
    EXPECT_EQ(video_.unit, "enabled");
    EXPECT_EQ(printed_, "");
}

TEST_F(VideoConfiguration, AFileSaysOther) {
    (void)sensors("[video]\nchannels = 64\nunit = \"masked-runtime\"\n");
    EXPECT_EQ(video_.channels, 64);
    EXPECT_EQ(video_.unit, "masked-runtime");
    (void)sensors("[video]\nchannels = 1\nunit = \"\"\n");
    EXPECT_EQ(video_.channels, 1);
    EXPECT_EQ(video_.unit, "");
    EXPECT_EQ(printed_, "");
}

TEST_F(VideoConfiguration, MistakesAreReportedAtTheirValues) {
    for (const std::string wrong : {"0", "65", "-1", "4294967298"}) {
        (void)sensors("[video]\nchannels = " + wrong + "\n");
        EXPECT_EQ(printed_,
                  "camera.toml:2:12: error: 'channels' of [video] must be from 1 to 64, not " +
                      wrong + "\nchannels = " + wrong + "\n           ^\ncamera.toml: 1 error\n");
        EXPECT_EQ(video_.channels, 2);
    }
    (void)sensors("[video]\nchannels = 1.0\nunit = \"a\\u0000b\"\nchanels = 1\n");
    EXPECT_EQ(printed_,
              "camera.toml:2:12: error: 'channels' of [video] must be an integer, not a float\n"
              "channels = 1.0\n           ^\n"
              "camera.toml:3:8: error: 'unit' of [video] must not contain a zero byte\n"
              "unit = \"a\\u0000b\"\n       ^\n"
              "camera.toml:4:1: error: unknown key 'chanels' in [video]\nchanels = 1\n^\n"
              "help: did you mean 'channels'?\ncamera.toml: 3 errors\n");
}

}  // namespace
}  // namespace camera
