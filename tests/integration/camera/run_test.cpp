#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

using CameraRun = CameraScene;

TEST_F(CameraRun, TellsInJsonWhatHappens) {
    open();
    handle({"set", "temperature.main", "71.5"});
    handle({"stop", "temperature"});
    handle({"start", "temperature"});
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
    EXPECT_EQ(told(), whole({R"({"event":"set","name":"temperature.main","value":71.5})",
                             R"({"event":"service","service":"temperature","state":"down",)"
                             R"("why":"stopped"})",
                             R"({"event":"service","service":"temperature","state":"up","name":")" +
                                 client_name(3) +
                                 R"(","bus_names":["com.tarlo.TemperatureController"]})"}));
}

TEST_F(CameraRun, TellsInTextWhatHappens) {
    open({.format = "text"});
    BusClient client(address());
    EXPECT_EQ(client.call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(1)");
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "x"),
              "com.tarlo.TemperatureController.Error.UnknownSensor: Unknown sensor 'x'.");
    handle({"set", "temperature.main", "71.5"});
    handle({"fail", "GetTemperature", "--silent", "--times", "1"});
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
    const std::string name = client.unique_name();
    EXPECT_EQ(
        told(),
        whole_text({"temperature: " + name + " calls RegisterForTemperatureChangeSignal(3, 0.5)",
                    "temperature: answers " + name + ", RegisterForTemperatureChangeSignal: (1)",
                    "temperature: " + name + " calls GetTemperatureIdFromName(\"x\")",
                    "temperature: refuses " + name +
                        ", GetTemperatureIdFromName: "
                        "com.tarlo.TemperatureController.Error.UnknownSensor: Unknown sensor 'x'.",
                    "temperature: sensor main is 71.5",
                    "temperature: signals TemperatureChangeSignal(1, 71.5)",
                    "fault: GetTemperature, set: not sent, 1 time"}));
}

TEST_F(CameraRun, TimesInJsonGrowFromTheStart) {
    open();
    handle({"set", "temperature.main", "1"});
    close();
    double last = 0.0;
    std::istringstream out(ended().out);
    for (std::string line; std::getline(out, line);) {
        EXPECT_TRUE(line.starts_with("{\"event\":\"")) << line;
        const double time = common::Json::parse(line)["time"];
        EXPECT_GE(time, last) << line;
        last = time;
    }
    EXPECT_GT(last, 0.0);
    EXPECT_LT(last, 30.0);
}

TEST_F(CameraRun, EndsWellOnSigintToo) {
    open();
    camera().send_signal(SIGINT);
    const Ended ended = camera().wait();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.signal, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(lines(ended.out), whole({}));
}

TEST_F(CameraRun, EndsWhenTheBusIsLost) {
    open();
    bus().stop();
    const Ended ended = camera().wait();
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err, "fenwa-camera: the connection to the bus was lost\n");
    EXPECT_EQ(lines(ended.out), whole({}, 69));
}

TEST_F(CameraRun, EndsWellWhenNobodyReadsItsLinesAnyMore) {
    open();
    // `head` goes away after one line; the next one cannot be written.
    const Ended ended = run_program(
        {"sh", "-c",
         R"({ "$0" run --private-bus --format json -- sh -c 'while :; do "$0" set temperature.main 1 2> /dev/null; )"
         R"(done' "$0"; echo "$?" >&2; } | head -n 1)",
         FENWA_CAMERA_PROGRAM},
        {{"DBUS_SYSTEM_BUS_ADDRESS", unreachable_system_bus}, {"TMPDIR", temporary()}});
    EXPECT_EQ(ended.err, "0\n");
}

TEST_F(CameraRun, EndsWellWhenNobodyReadsItAnyMoreAndThereIsNothingToTell) {
    const Ended ended =
        run_program({"sh", "-c", R"({ "$0" run --private-bus; echo "$?" >&2; } | grep -m 1 ready)",
                     FENWA_CAMERA_PROGRAM},
                    {{"DBUS_SYSTEM_BUS_ADDRESS", unreachable_system_bus}, {"TMPDIR", temporary()}});
    EXPECT_EQ(ended.err, "0\n");
    EXPECT_FALSE(files_left_behind());
}

TEST_F(CameraRun, SaysThatItsLinesCannotBeWritten) {
    const Ended ended =
        run_program({"sh", "-c", R"("$0" run --private-bus > /dev/full)", FENWA_CAMERA_PROGRAM},
                    {{"DBUS_SYSTEM_BUS_ADDRESS", unreachable_system_bus}, {"TMPDIR", temporary()}});
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err, "fenwa-camera: cannot write to stdout: No space left on device\n");
    EXPECT_FALSE(files_left_behind());
}

TEST_F(CameraRun, ASecondCameraOnABusStaysAway) {
    open();
    const Ended second = run({"run", "--bus", address(), "--format", "json"});
    EXPECT_EQ(second.code, 69);
    EXPECT_EQ(second.err,
              "fenwa-camera: cannot own the bus name 'com.tarlo.Fenwa.Camera1': another "
              "connection owns it\n");
    EXPECT_THAT(lines(second.out), ElementsAre(R"({"event":"exit","status":69})"));
    close();
    EXPECT_EQ(told(), whole({}));
}

TEST_F(CameraRun, ANameThatAnotherHasIsNotHad) {
    open({.run = {"--without", "temperature"}});
    const BusClient other(address());
    common::own_name(*other.bus(), "com.tarlo.TemperatureController");
    const Ended refused = order({"start", "temperature"});
    EXPECT_EQ(refused.code, 69);
    EXPECT_EQ(refused.err,
              "fenwa-camera: cannot own the bus name 'com.tarlo.TemperatureController': another "
              "connection owns it\n");
    EXPECT_EQ(state()["services"][0]["state"], "down");
}

TEST_F(CameraRun, ABusThatIsNotThereIsNotReached) {
    const Ended ended = run({"run", "--bus", "unix:path=/nonexistent/bus"});
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err,
              "fenwa-camera: cannot reach the bus at 'unix:path=/nonexistent/bus': No such file or "
              "directory\n");
    EXPECT_THAT(lines(ended.out), ElementsAre("the end, with exit code 69"));
}

TEST_F(CameraRun, WithoutAServiceItIsReadyWithNone) {
    std::vector<std::string> options{"--without"};
    for (const ServiceNames& service : camera_services)
        options.emplace_back(service.name);
    open({.run = options});
    close();
    EXPECT_THAT(told(), ElementsAre(R"({"event":"ready","bus":"BUS","services":[]})",
                                    R"({"event":"exit","status":0})"));
}

TEST_F(CameraRun, WithoutAnUnknownServiceItDoesNotStart) {
    const Ended ended = run({"run", "--private-bus", "--without", "temprature"});
    EXPECT_EQ(ended.code, 2);
    EXPECT_EQ(ended.err,
              "fenwa-camera: unknown service 'temprature'; did you mean 'temperature'?\n");
    EXPECT_EQ(ended.out, "");
}

TEST_F(CameraRun, AConfigurationSaysWhichSensorsThereAre) {
    const std::string file =
        folder().write("c.toml", "[[sensors]]\nname = \"zoom\"\nid = 12\ntemperature = -4.5\n");
    open({.run = {"--config", file}});
    BusClient client(address());
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "zoom"), "(12)");
    EXPECT_EQ(client.call("GetTemperature", "is", 12, "zoom"), "(-4.5)");
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "main"),
              "com.tarlo.TemperatureController.Error.UnknownSensor: Unknown sensor 'main'.");
}

TEST_F(CameraRun, PlaysOnABusOfItsOwnAndLeavesNothingBehind) {
    const auto camera = start({"run", "--private-bus", "--format", "json"});
    const auto line = camera->wait_for_text("\"ready\"");
    ASSERT_TRUE(line) << camera->err();
    EXPECT_THAT(left_behind(),
                UnorderedElementsAre(EndsWith(" dbus-daemon"), EndsWith(" fenwa-camera"),
                                     EndsWith(" fenwa-keeper")));
    BusClient client(address_in(*line));
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "lens"), "(4)");
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(left_behind(), IsEmpty());
    EXPECT_FALSE(files_left_behind());
}

TEST_F(CameraRun, ABusOfItsOwnMayListenWhereItIsTold) {
    const std::string socket = (folder().path() / "a b,c").string();
    const auto camera = start({"run", "--private-bus=" + socket, "--format", "json"});
    const auto line = camera->wait_for_text("\"ready\"");
    ASSERT_TRUE(line) << camera->err();
    struct stat status {};
    ASSERT_EQ(stat(socket.c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    BusClient client(address_in(*line));
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "lens"), "(4)");

    const Ended second = run({"run", "--private-bus=" + socket});
    EXPECT_EQ(second.code, 69);
    EXPECT_EQ(second.err, "fenwa-camera: cannot start a private bus: somebody listens at '" +
                              socket + "' already\n");
    EXPECT_EQ(camera->terminate().code, 0);
    EXPECT_NE(stat(socket.c_str(), &status), 0);
}

// The address reads as the machine's bus and is refused for that; were it not refused, it would
// still lead nowhere.
TEST_F(CameraRun, RefusesToPlayOnTheMachinesSystemBus) {
    const std::string sentence =
        "fenwa-camera: this would play on the machine's own system bus; use --private-bus for a "
        "bus of its own, --bus ADDRESS for another one, or --system if you mean it\n";
    for (const std::vector<std::string>& options : std::vector<std::vector<std::string>>{
             {"run"}, {"run", "--bus", "system"}, {"run", "--bus", unreachable_system_bus}}) {
        const Ended ended = run(options);
        EXPECT_EQ(ended.code, 2);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, sentence);
    }
}

TEST_F(CameraRun, WithSystemItWouldPlayThere) {
    const Ended ended = run({"run", "--system"});
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err,
              "fenwa-camera: cannot reach the bus at 'system': No such file or directory\n");
}

TEST_F(CameraRun, PlaysOnASystemBusThatTheEnvironmentNames) {
    open();
    close();
    const auto camera =
        start({"run", "--format", "json"}, {{"DBUS_SYSTEM_BUS_ADDRESS", address()}});
    EXPECT_TRUE(camera->wait_for_text("\"ready\"")) << camera->err();
    EXPECT_EQ(camera->terminate().code, 0);
}

}  // namespace
}  // namespace test
