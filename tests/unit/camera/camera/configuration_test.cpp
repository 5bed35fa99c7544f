#include <limits>

#include "common/process/exit_code.hpp"
#include "tests/unit/camera/configuration_fixture.hpp"

namespace camera {
namespace {

constexpr const char* standard = "main 3 36.5, lens 4 28, housing 5 21.5, ";

TEST_F(ConfigurationTest, WithoutAFileThereAreThreeSensors) {
    std::ostringstream list;
    for (const Sensor& sensor : default_configuration().sensors)
        list << sensor.name << ' ' << sensor.id << ' ' << sensor.temperature << ", ";
    EXPECT_EQ(list.str(), standard);
}

TEST_F(ConfigurationTest, WhatAFileLeavesOutIsAsWithoutAFile) {
    EXPECT_EQ(sensors(""), standard);
    EXPECT_EQ(sensors("# nothing\n"), standard);
    EXPECT_EQ(printed_, "");
}

TEST_F(ConfigurationTest, ReadsSensorsInTheirOrder) {
    EXPECT_EQ(sensors(R"([[sensors]]
name = "zoom"
id = -2147483648
temperature = -40

[[sensors]]
temperature = inf
id = 2147483647
name = "a b"
)"),
              "zoom -2147483648 -40, a b 2147483647 inf, ");
    EXPECT_EQ(printed_, "");
}

TEST_F(ConfigurationTest, ACameraMayHaveNoSensor) {
    EXPECT_EQ(sensors("sensors = []\n"), "");
    EXPECT_EQ(printed_, "");
}

TEST_F(ConfigurationTest, WithoutAFileTheCameraReceivesMoreThanItsBudget) {
    EXPECT_EQ(default_configuration().power.budget, 20.0);
    EXPECT_EQ(default_configuration().power.received, 25.0);
    (void)sensors("");
    EXPECT_EQ(power_.budget, 20.0);
    EXPECT_EQ(power_.received, 25.0);
}

TEST_F(ConfigurationTest, ReadsPower) {
    EXPECT_EQ(sensors("[power]\nbudget = 0\nreceived = -inf\n"), standard);
    EXPECT_EQ(power_.budget, 0.0);
    EXPECT_EQ(power_.received, -std::numeric_limits<double>::infinity());
    (void)sensors("[power]\nbudget = 12.5\n");
    EXPECT_EQ(power_.budget, 12.5);
    EXPECT_EQ(power_.received, 25.0);
    EXPECT_EQ(printed_, "");
}

TEST_F(ConfigurationTest, MistakesInPowerAreReportedAtTheirValues) {
    for (const std::string wrong : {"-0.5", "inf", "nan"}) {
        (void)sensors("[power]\nbudget = " + wrong + "\n");
        EXPECT_EQ(printed_,
                  "camera.toml:2:10: error: 'budget' of [power] must be a finite number of at "
                  "least 0, not " +
                      wrong + "\nbudget = " + wrong + "\n         ^\ncamera.toml: 1 error\n");
        EXPECT_EQ(power_.budget, 20.0);
    }
    (void)sensors("[power]\nreceived = \"much\"\nbudgets = 4\n");
    EXPECT_EQ(printed_,
              "camera.toml:2:12: error: 'received' of [power] must be a number, not a string\n"
              "received = \"much\"\n           ^\n"
              "camera.toml:3:1: error: unknown key 'budgets' in [power]\nbudgets = 4\n^\n"
              "help: did you mean 'budget'?\ncamera.toml: 2 errors\n");
    (void)sensors("power = 20\n");
    EXPECT_EQ(printed_,
              "camera.toml:1:9: error: 'power' of the camera's configuration must be a table, not "
              "an integer\npower = 20\n        ^\ncamera.toml: 1 error\n");
}

TEST_F(ConfigurationTest, EachMissingKeyIsReportedAtItsTable) {
    EXPECT_EQ(mistake("id = 1\ntemperature = 1\n"),
              "camera.toml:1:1: error: [[sensors]] has no 'name'\n[[sensors]]\n^\n");
    EXPECT_EQ(mistake("name = \"a\"\ntemperature = 1\n"),
              "camera.toml:1:1: error: [[sensors]] has no 'id'\n[[sensors]]\n^\n");
    EXPECT_EQ(mistake("name = \"a\"\nid = 1\n"),
              "camera.toml:1:1: error: [[sensors]] has no 'temperature'\n[[sensors]]\n^\n");
}

TEST_F(ConfigurationTest, EachWrongKindIsReportedAtItsValue) {
    EXPECT_EQ(mistake("name = 5\nid = 1\ntemperature = 1\n"),
              "camera.toml:2:8: error: 'name' of [[sensors]] must be a string, not an integer\n"
              "name = 5\n       ^\n");
    EXPECT_EQ(mistake("name = \"a\"\nid = 1.0\ntemperature = 1\n"),
              "camera.toml:3:6: error: 'id' of [[sensors]] must be an integer, not a float\n"
              "id = 1.0\n     ^\n");
    EXPECT_EQ(
        mistake("name = \"a\"\nid = 1\ntemperature = \"hot\"\n"),
        "camera.toml:4:15: error: 'temperature' of [[sensors]] must be a number, not a string\n"
        "temperature = \"hot\"\n              ^\n");
}

TEST_F(ConfigurationTest, NamesAndIdsMustBeUsable) {
    EXPECT_EQ(mistake("name = \"\"\nid = 1\ntemperature = 1\n"),
              "camera.toml:2:8: error: a sensor's name must not be empty\nname = \"\"\n       ^\n");
    EXPECT_EQ(mistake("name = \"a\\u0000b\"\nid = 1\ntemperature = 1\n"),
              "camera.toml:2:8: error: a sensor's name must not contain a zero byte\n"
              "name = \"a\\u0000b\"\n       ^\n");
    EXPECT_EQ(mistake("name = \"a\"\nid = 2147483648\ntemperature = 1\n"),
              "camera.toml:3:6: error: a sensor's id must be from -2147483648 to 2147483647, not "
              "2147483648\n"
              "id = 2147483648\n     ^\n");
    EXPECT_EQ(mistake("name = \"a\"\nid = -2147483649\ntemperature = 1\n"),
              "camera.toml:3:6: error: a sensor's id must be from -2147483648 to 2147483647, not "
              "-2147483649\n"
              "id = -2147483649\n     ^\n");
}

TEST_F(ConfigurationTest, AnUnknownKeyGetsTheNearest) {
    EXPECT_EQ(mistake("nam = \"a\"\nname = \"a\"\nid = 1\ntemperature = 1\n"),
              "camera.toml:2:1: error: unknown key 'nam' in [[sensors]]\nnam = \"a\"\n^\n"
              "help: did you mean 'name'?\n");
}

TEST_F(ConfigurationTest, OfAFileThatIsNoTomlTheDefaultRemains) {
    EXPECT_EQ(sensors("[[sensors\n"), standard);
    EXPECT_TRUE(printed_.starts_with("camera.toml:1:10: error: ")) << printed_;
}

TEST_F(ConfigurationTest, ReportsAllMistakesInFileOrder) {
    EXPECT_EQ(sensors(R"(sensor = 1
[[sensors]]
name = "main"
id = 3
temperature = 36.5
[[sensors]]
name = "main"
id = 3
temperature = true
[[sensors]]
id = "four"
unit = "K"
[camera]
)"),
              "main 3 36.5, ");
    EXPECT_EQ(printed_,
              R"(camera.toml:1:1: error: unknown key 'sensor' in the camera's configuration
sensor = 1
^
help: did you mean 'sensors'?
camera.toml:7:8: error: duplicate sensor name 'main'
name = "main"
       ^
help: the first is at line 3
camera.toml:8:6: error: duplicate sensor id 3
id = 3
     ^
help: the first is at line 4
camera.toml:9:15: error: 'temperature' of [[sensors]] must be a number, not a boolean
temperature = true
              ^
camera.toml:10:1: error: [[sensors]] has no 'name'
[[sensors]]
^
camera.toml:10:1: error: [[sensors]] has no 'temperature'
[[sensors]]
^
camera.toml:11:6: error: 'id' of [[sensors]] must be an integer, not a string
id = "four"
     ^
camera.toml:12:1: error: unknown key 'unit' in [[sensors]]
unit = "K"
^
camera.toml:13:2: error: unknown key 'camera' in the camera's configuration
[camera]
 ^
camera.toml: 9 errors
)");
}

TEST_F(ConfigurationTest, SensorsMustBeTablesInAnArray) {
    EXPECT_EQ(sensors("sensors = [5]\n"), "");
    EXPECT_EQ(printed_,
              "camera.toml:1:12: error: a sensor must be a table, not an integer\n"
              "sensors = [5]\n           ^\ncamera.toml: 1 error\n");
    EXPECT_EQ(sensors("sensors = \"main\"\n"), standard);
    EXPECT_EQ(printed_,
              "camera.toml:1:11: error: 'sensors' of the camera's configuration must be an array, "
              "not a string\nsensors = \"main\"\n          ^\ncamera.toml: 1 error\n");
}

TEST_F(ConfigurationTest, AFileThatIsNotThereEndsTheReading) {
    common::Diagnostics diagnostics("c");
    try {
        (void)read_configuration((folder_.path() / "nothing").string(), diagnostics);
        FAIL() << "nothing was thrown";
    } catch (const common::Failure& failure) {
        EXPECT_EQ(failure.code(), common::ExitCode::unreadable);
        EXPECT_EQ(std::string(failure.what()), "cannot read '" +
                                                   (folder_.path() / "nothing").string() +
                                                   "': No such file or directory");
    }
}

}  // namespace
}  // namespace camera
