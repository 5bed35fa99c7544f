// The commands that talk to a running camera.
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

class CameraCommands : public CameraScene {
  protected:
    /// Each of these commands must be refused with the sentence after it.
    void expect_refused(const std::vector<std::pair<Lines, std::string>>& commands) const {
        for (const auto& [arguments, sentence] : commands)
            EXPECT_EQ(refusal_of(arguments), "fenwa-camera: " + sentence + "\n");
    }
};

TEST_F(CameraCommands, AreRefusedWithTheNearestName) {
    open();
    const std::string service = "unknown service 'temprature'; did you mean 'temperature'?";
    const std::string member =
        "unknown method, signal or property 'GetTemperatur'; did you mean 'GetTemperature'?";
    expect_refused(
        {{{"start", "temprature"}, service},
         {{"stop", "temprature"}, service},
         {{"restart", "temprature"}, service},
         {{"stop", "x"}, "unknown service 'x'"},
         {{"set", "temperature.mian", "1"}, "unknown sensor 'mian'; did you mean 'main'?"},
         {{"set", "temperature.main", "warm"},
          "'warm' is not a valid temperature: expected a number, nan, inf or -inf"},
         {{"fail", "GetTemperatur", "--drop"}, member},
         {{"fail", "GetTemperatur", "--clear"}, member},
         {{"fail", "temperature.Get", "--drop"},
          "unknown method, signal or property 'Get' of the service 'temperature'"},
         {{"fail", "temprature.Get", "--drop"}, service},
         {{"press", "ok"}, "unknown button 'ok': no client has added buttons"}});
    close();
    EXPECT_EQ(told(), whole({})) << "a refused command leaves no line";
}

TEST_F(CameraCommands, AreRefusedWithAFaultThatMakesNoSense) {
    open();
    expect_refused(
        {{{"fail", "GetTemperature"},
          "a fault needs one of 'error', 'malformed', 'silent', 'drop' and 'delay'"},
         {{"fail", "TemperatureSignal", "--error", "com.example.Busy"},
          "'TemperatureSignal' is a signal; 'error' needs a method or a property"},
         {{"fail", "PropertiesChanged", "--error", "com.example.Busy"},
          "'PropertiesChanged' is a signal; 'error' needs a method or a property"},
         {{"fail", "SetPower", "--error", "com.example.Busy"},
          "'SetPower' is an outgoing call of the camera; 'error' needs a method or a property"},
         {{"fail", "GetTemperature", "--drop", "--times", "0"},
          "'times' of a fault must be at least 1, not 0"},
         {{"fail", "GetTemperature", "--delay", "-5"},
          "'delay' of a fault must be at least 1, not -5"},
         {{"fail", "GetTemperature", "--drop", "--probability", "1.5"},
          "'probability' of a fault must be above 0 and at most 1, not 1.5"},
         {{"fail", "GetTemperature", "--error", "com.\xFF"}, "the arguments are not valid UTF-8"},
         {{"set", "temperature.\xFF", "1"}, "the arguments are not valid UTF-8"}});
}

TEST_F(CameraCommands, OfAnyKindNeedACamera) {
    const common::PrivateBus alone;
    for (const Lines& words : std::vector<Lines>{{"set", "temperature.main", "1"},
                                                 {"start", "temperature"},
                                                 {"stop", "temperature"},
                                                 {"restart", "temperature"},
                                                 {"fail", "GetTemperature", "--drop"},
                                                 {"fail", "GetTemperature", "--clear"},
                                                 {"press", "ok"},
                                                 {"show"}}) {
        const Ended ended = run(words + Lines{"--bus", alone.address()});
        EXPECT_EQ(ended.code, 69);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "fenwa-camera: no camera plays on the bus at '" + alone.address() +
                                 "'; start one with 'fenwa-camera run', or name its bus with "
                                 "--bus\n");
    }
}

TEST_F(CameraCommands, DoNotMakeTheDaemonStartACamera) {
    const std::string started = (folder().path() / "started").string();
    const std::string program = folder().write("program", "#!/bin/sh\n: > '" + started + "'\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    common::PrivateBusOptions options;
    options.camera_program = program;
    options.activatable = {{camera::camera_control.name, "temperature"}};
    const common::PrivateBus bus(options);
    const Ended ended = run({"show", "--bus", bus.address()});
    EXPECT_EQ(ended.code, 69);
    EXPECT_THAT(ended.err, StartsWith("fenwa-camera: no camera plays on the bus at '"));
    EXPECT_FALSE(std::filesystem::exists(started));
}

TEST_F(CameraCommands, NeedABus) {
    for (const std::string name : {"show", "run"}) {
        const Ended ended = run({name, "--bus", "unix:path=/nonexistent/bus"});
        EXPECT_EQ(ended.code, 69);
        EXPECT_EQ(
            ended.err,
            "fenwa-camera: cannot reach the bus at 'unix:path=/nonexistent/bus': No such file "
            "or directory; name another bus with --bus, or give a program its own: fenwa-camera "
            "run --private-bus -- PROGRAM\n");
        EXPECT_EQ(lines(ended.out), name == "run" ? Lines{"the end, with exit code 69"} : Lines{});
    }
    EXPECT_EQ(run({"show", "--bus", "nonsense"}).code, 69);
}

TEST_F(CameraCommands, GoToTheSystemBusThatTheEnvironmentNames) {
    open_bus({});
    const std::map<std::string, std::string> system = {{"DBUS_SYSTEM_BUS_ADDRESS", address()}};
    const auto camera = start({"run"}, system);
    ASSERT_TRUE(camera->wait_for_text("ready on")) << camera->err();
    EXPECT_EQ(run({"set", "temperature.main", "50"}, system).code, 0);
    EXPECT_EQ(value("temperature.main"), 50.0);
    EXPECT_EQ(camera->terminate().code, 0);
}

TEST_F(CameraCommands, ShowTheWholeState) {
    open();
    BusClient client(address());
    EXPECT_EQ(client.call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(1)");
    EXPECT_EQ(client.call("RegisterForTemperatureSignal", "idb", 4, 60.0, 0), "(2, true)");
    handle({"set", "temperature.housing", "nan"});
    fail({"GetTemperature", "--delay", "250", "--times", "3"});
    const Ended text = command({"show"});
    EXPECT_EQ(text.code, 0);
    EXPECT_EQ(text.err, "");
    EXPECT_EQ(plain(text.out), R"(bus BUS
service temperature: up as :1.1
  name com.tarlo.TemperatureController
  registration 1 of :1.8: change of main by 0.5
  registration 2 of :1.8: lens at or below 60.0
service power-consumer: up as :1.2
  name com.tarlo.PowerControl.Consumer
service power-status: up as :1.3
  name com.tarlo.PowerControl.Status
service controls: up as :1.4
  name com.tarlo.Onscreencontrols1
service overlay: up as :1.5
  name com.tarlo.PrioritizedTextOverlay
service video: up as :1.6
  name com.tarlo.VideoReady1
service init: up as :1.7
  name org.freedesktop.systemd1
temperature.main     36.5
temperature.lens     28.0
temperature.housing  nan
power.budget         20.0
power.left           20.0
power.received       25.0
wdr.0                off
wdr.1                off
overlay.text         ""
video.0              0
video.1              0
unit                 enabled
fault GetTemperature: sent after 250 ms, 3 times
)");
    EXPECT_THAT(plain(command({"show", "--format", "json"}).out),
                AllOf(StartsWith(R"({"bus":"BUS","services":[{"name":"temperature","state":"up",)"
                                 R"("unique_name":":1.1","bus_names":)"
                                 R"(["com.tarlo.TemperatureController"],"activatable":false,)"
                                 R"("registrations":[{"id":1,"client":":1.8","what":)"
                                 R"("change of main by 0.5","delta":0.5,"reported":36.5},)"),
                      EndsWith(R"("overlay.text":"","video.0":0,"video.1":0,"unit":"enabled"},)"
                               R"("faults":[{"member":"GetTemperature","what":)"
                               R"("sent after 250 ms, 3 times","times":3}]})"
                               "\n")));
}

TEST_F(CameraCommands, SetAndClearFaults) {
    open();
    BusClient client(address());
    fail({"GetTemperature", "--error", "com.example.Error.A", "--probability", "0.5", "--seed",
          "3"});
    fail({"temperature.GetTemperature", "--malformed"});
    fail({"temperature.GetTemperature", "--error", "com.example.Error.B"});
    EXPECT_EQ(common::json_line(state()["faults"]),
              R"([{"member":"GetTemperature","what":"answered with com.example.Error.A, with )"
              R"(probability 0.5"},{"member":"temperature.GetTemperature","what":)"
              R"("answered with com.example.Error.B"}])");
    fail({"temperature.GetTemperature", "--clear"});
    EXPECT_THAT(state()["faults"], SizeIs(1));
    fail({"GetTemperature", "--clear"});
    fail({"GetTemperature", "--clear"});
    EXPECT_EQ(client.call("GetTemperature", "is", 3, "main"), "(36.5)");
    close();
    EXPECT_THAT(with("\"cleared\"", told()), SizeIs(2));
}

TEST_F(CameraCommands, ReachTheCameraAsMethodsToo) {
    open();
    BusClient client(address(), camera::camera_control);
    const std::string refused = "com.tarlo.Fenwa.Camera1.Error.Refused: ";
    EXPECT_EQ(client.call("Set", "ss", "temperature.main", "50"), "()");
    EXPECT_EQ(client.call("Set", "ss", "temperature.mian", "50"),
              refused + "unknown sensor 'mian'; did you mean 'main'?");
    EXPECT_EQ(client.call("Fail", "a{sv}", 2, "member", "s", "GetTemperature", "times", "d", 1.5),
              refused + "'times' of a fault must be an integer, not 1.5");
    EXPECT_EQ(client.call("Fail", "a{sv}", 0),
              refused + "a fault needs 'member', the name of a method, signal or property");
    EXPECT_EQ(client.call("Fail", "a{sv}", 2, "member", "s", "GetTemperature", "delay", "u", 5U),
              "()");
    EXPECT_THAT(client.call("Set", "s", "temperature.main"),
                StartsWith("org.freedesktop.DBus.Error.InvalidArgs: "));
    EXPECT_THAT(client.call("Show", ""), HasSubstr("sent after 5 ms"));
}

}  // namespace
}  // namespace test
