#include <sys/stat.h>
#include <nlohmann/json.hpp>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/bus_daemon.hpp"

namespace test {
namespace {

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
    double last = 0.0;
    std::istringstream out(ended().out);
    for (std::string line; std::getline(out, line);) {
        EXPECT_TRUE(line.starts_with("{\"event\":\"")) << line;
        const double time = common::parse_json(line, "the text")["time"];
        EXPECT_GE(time, last) << line;
        last = time;
    }
    EXPECT_GT(last, 0.0);
    EXPECT_LT(last, 30.0);
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
    // `head` goes away after one line, and the next one cannot be written; `grep` goes away when
    // nothing more is told.
    for (
        const std::string script :
        {R"({ "$0" run --private-bus --format json -- sh -c 'while :; do "$0" set temperature.main 1 2> /dev/null; )"
         R"(done' "$0"; echo "$?" >&2; } | head -n 1)",
         R"({ "$0" run --private-bus; echo "$?" >&2; } | grep -m 1 ready)"}) {
        EXPECT_EQ(run_script(script).err, "0\n");
        expect_nothing_left();
    }
}

TEST_F(CameraRun, SaysThatItsLinesCannotBeWritten) {
    const Ended ended = run_script(R"("$0" run --private-bus > /dev/full)");
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err, "fenwa-camera: cannot write to stdout: No space left on device\n");
    expect_nothing_left();
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

TEST_F(CameraRun, WithoutAServiceItIsReadyWithNone) {
    Lines options{"--without"};
    for (const ServiceNames& service : camera_services)
        options.emplace_back(service.name);
    open({.run = options});
    close();
    EXPECT_THAT(told(), ElementsAre(R"({"event":"ready","bus":"BUS","services":[]})",
                                    R"({"event":"exit","status":0})"));
}

TEST_F(CameraRun, AConfigurationSaysWhichSensorsThereAre) {
    open({.run = {"--config",
                  folder().write("c.toml",
                                 "[[sensors]]\nname = 'zoom'\nid = 12\ntemperature = -4.5\n")}});
    BusClient client(address());
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "zoom"), "(12)");
    EXPECT_EQ(client.call("GetTemperature", "is", 12, "zoom"), "(-4.5)");
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "main"),
              "com.tarlo.TemperatureController.Error.UnknownSensor: Unknown sensor 'main'.");
}

TEST_F(CameraRun, PlaysOnABusOfItsOwnAndLeavesNothingBehind) {
    open({.own_bus = true});
    std::vector<::testing::Matcher<std::string>> running{
        EndsWith(" dbus-daemon"), EndsWith(" fenwa-camera"), EndsWith(" fenwa-keeper")};
    if (on_dbus_broker()) {
        running.emplace_back(EndsWith(" dbus-broker-lau"));
        running.emplace_back(EndsWith(" dbus-broker"));
    }
    EXPECT_THAT(left_behind(), ::testing::UnorderedElementsAreArray(running));
    BusClient client(address());
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "lens"), "(4)");
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
    expect_nothing_left();
}

TEST_F(CameraRun, ABusOfItsOwnMayListenWhereItIsTold) {
    const std::string socket = (folder().path() / "a b,c;d %=").string();
    open({.own_bus = true, .socket = "=" + socket});
    struct stat status {};
    ASSERT_EQ(stat(socket.c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    BusClient client(address());
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "lens"), "(4)");

    const Ended second = run({"run", "--private-bus=" + socket});
    EXPECT_EQ(second.code, 69);
    EXPECT_EQ(second.err, "fenwa-camera: cannot start a private bus: a process listens at '" +
                              socket + "' already\n");
    EXPECT_EQ(stat(socket.c_str(), &status), 0) << "the other's socket stays";
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_NE(stat(socket.c_str(), &status), 0);
}

// The address reads as the machine's bus and is refused for that; were it not refused, it would
// still lead nowhere.
TEST_F(CameraRun, RefusesToPlayOnTheMachinesSystemBus) {
    for (const Lines& options :
         std::vector<Lines>{{}, {"--bus", "system"}, {"--bus", unreachable_system_bus}}) {
        const Ended ended = run(Lines{"run"} + options);
        EXPECT_EQ(ended.code, 2);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(
            ended.err,
            "fenwa-camera: this would play on the machine's own system bus; use --private-bus "
            "for a bus of its own, --bus ADDRESS for another one, or --system if you mean "
            "it\n");
    }
    const Ended ended = run({"run", "--system"});
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err, std::string("fenwa-camera: cannot reach the bus at 'system' (") +
                             unreachable_system_bus +
                             "): No such file or directory; name another bus with --bus, or give a "
                             "program its own: fenwa-camera run --private-bus -- PROGRAM\n");
}

using UnreadCamera = ClientScene;

TEST_F(UnreadCamera, ServesAndEndsThoughNobodyReadsItsLines) {
    open_for(camera::temperature_controller);
    // More than a pipe and the camera hold.
    constexpr std::size_t calls = 12000;
    for (std::size_t i = 0; i < calls; ++i)
        ASSERT_EQ(call("GetTemperature", "is", 3, "main"), "(36.5)") << i;
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
    // Two lines of each call have come, or are counted.
    std::size_t dropped = 0;
    for (const std::string& line : told("unread"))
        dropped += common::parse_json(line, "the text")["lines"].get<std::size_t>();
    EXPECT_GT(dropped, 0U);
    EXPECT_EQ(told("call").size() + told("reply").size() + dropped, 2 * calls);
}

TEST_F(UnreadCamera, EndsAfterAWhileThoughNobodyEverReads) {
    const auto begin = steady_clock::now();
    // The commands print their names and more than the pipe holds.
    const Ended ended = run_script(
        R"({ "$0" run --private-bus -- sh -c 'yes | head -c 300000'; echo "code $?" >&2; } |
           sleep 12)");
    EXPECT_EQ(ended.err, "fenwa-camera: gave up waiting for the reader of 'stdout'\ncode 0\n");
    EXPECT_LT(steady_clock::now() - begin, seconds(15));
}

}  // namespace
}  // namespace test
