// The verbs of the command line that talk to a running camera.
#include <gmock/gmock.h>

#include <filesystem>

#include "camera/bus/message_json.hpp"
#include "camera/bus/names.hpp"
#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

class CameraOrders : public CameraScene {
  protected:
    /// The order must be refused as a mistake of the user, with this sentence.
    void expect_refused(const std::vector<std::string>& arguments, const std::string& sentence) {
        const Ended ended = order(arguments);
        EXPECT_EQ(ended.code, 2) << sentence;
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "fenwa-camera: " + sentence + "\n");
    }
};

TEST_F(CameraOrders, AreRefusedWithTheNearestName) {
    open();
    const std::string no_service = "unknown service 'temprature'; did you mean 'temperature'?";
    expect_refused({"start", "temprature"}, no_service);
    expect_refused({"stop", "temprature"}, no_service);
    expect_refused({"restart", "temprature"}, no_service);
    expect_refused({"stop", "x"}, "unknown service 'x'");
    expect_refused({"set", "temperature.mian", "1"}, "unknown sensor 'mian'; did you mean 'main'?");
    expect_refused({"set", "temprature.main", "1"},
                   "unknown value 'temprature.main'; did you mean 'temperature.main'?");
    expect_refused({"set", "temperature.main", "warm"},
                   "'warm' is not a valid temperature: expected a number, nan, inf or -inf");
    expect_refused({"fail", "GetTemperatur", "--drop"},
                   "unknown method, signal or property 'GetTemperatur'; did you mean "
                   "'GetTemperature'?");
    expect_refused({"fail", "temperature.Get", "--drop"},
                   "unknown method, signal or property 'Get' of the service 'temperature'");
    expect_refused({"fail", "GetTemperatur", "--clear"},
                   "unknown method, signal or property 'GetTemperatur'; did you mean "
                   "'GetTemperature'?");
    expect_refused({"press", "ok"}, "unknown button 'ok': no client has added buttons");
    close();
    EXPECT_EQ(told(), whole({})) << "a refused order leaves no line";
}

TEST_F(CameraOrders, AFaultThatMakesNoSenseIsRefused) {
    open();
    expect_refused({"fail", "GetTemperature"},
                   "a fault needs one of 'error', 'malformed', 'silent', 'drop' and 'delay'");
    expect_refused({"fail", "GetTemperature", "--drop", "--silent"},
                   "a fault takes only one of 'error', 'malformed', 'silent' and 'drop'");
    expect_refused({"fail", "GetTemperature", "--silent", "--delay", "5"},
                   "a fault takes either 'silent' or 'delay', not both");
    expect_refused({"fail", "GetTemperature", "--error", "Busy"},
                   "'Busy' is not a valid D-Bus error name, such as com.example.Error.Busy");
    expect_refused({"fail", "TemperatureSignal", "--error", "com.example.Busy"},
                   "'TemperatureSignal' is a signal; 'error' needs a method or a property");
    expect_refused({"fail", "GetTemperature", "--drop", "--times", "0"},
                   "'times' of a fault must be at least 1, not 0");
    expect_refused({"fail", "GetTemperature", "--delay", "-5"},
                   "'delay' of a fault must be at least 1, not -5");
    expect_refused({"fail", "GetTemperature", "--drop", "--probability", "1.5"},
                   "'probability' of a fault must be above 0 and at most 1, not 1.5");
    expect_refused({"fail", "GetTemperature", "--error", "com.\xFF"},
                   "the arguments are not valid UTF-8");
    expect_refused({"set", "temperature.\xFF", "1"}, "the arguments are not valid UTF-8");
}

TEST_F(CameraOrders, OfAnyKindNeedACamera) {
    const common::PrivateBus alone;
    const std::string sentence = "fenwa-camera: no camera plays on the bus at '" + alone.address() +
                                 "'; start one with 'fenwa-camera run', or name its bus with "
                                 "--bus\n";
    for (const std::vector<std::string>& order :
         std::vector<std::vector<std::string>>{{"set", "temperature.main", "1"},
                                               {"start", "temperature"},
                                               {"stop", "temperature"},
                                               {"restart", "temperature"},
                                               {"fail", "GetTemperature", "--drop"},
                                               {"fail", "GetTemperature", "--clear"},
                                               {"press", "ok"},
                                               {"show"}}) {
        std::vector<std::string> arguments = order;
        arguments.insert(arguments.end(), {"--bus", alone.address()});
        const Ended ended = run(arguments);
        EXPECT_EQ(ended.code, 69);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, sentence);
    }
}

TEST_F(CameraOrders, DoNotMakeTheDaemonStartACamera) {
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

TEST_F(CameraOrders, NeedABus) {
    const Ended ended = run({"show", "--bus", "unix:path=/nonexistent/bus"});
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err,
              "fenwa-camera: cannot reach the bus at 'unix:path=/nonexistent/bus': No such file or "
              "directory\n");
    EXPECT_EQ(run({"show", "--bus", "nonsense"}).code, 69);
}

TEST_F(CameraOrders, GoToTheSystemBusThatTheEnvironmentNames) {
    open();
    const Ended done =
        run({"set", "temperature.main", "50"}, {{"DBUS_SYSTEM_BUS_ADDRESS", address()}});
    EXPECT_EQ(done.code, 0) << done.err;
    EXPECT_EQ(state()["values"]["temperature.main"], 50.0);
}

TEST_F(CameraOrders, ShowTheWholeState) {
    open();
    BusClient client(address());
    EXPECT_EQ(client.call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(1)");
    EXPECT_EQ(client.call("RegisterForTemperatureSignal", "idb", 4, 60.0, 0), "(2, true)");
    handle({"set", "temperature.housing", "nan"});
    handle({"fail", "GetTemperature", "--delay", "250", "--times", "3"});
    const Ended text = order({"show"});
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
    const Ended json = order({"show", "--format", "json"});
    EXPECT_EQ(json.code, 0);
    EXPECT_EQ(json.err, "");
    EXPECT_EQ(
        plain(json.out),
        R"({"bus":"BUS","services":[{"name":"temperature","state":"up","unique_name":":1.1",)"
        R"("bus_names":["com.tarlo.TemperatureController"],"activatable":false,"registrations":[)"
        R"({"id":1,"client":":1.8","what":"change of main by 0.5","delta":0.5,"reported":36.5},)"
        R"({"id":2,"client":":1.8","what":"lens at or below 60.0","limit":60.0,"rising":false,)"
        R"("beyond":true}]},{"name":"power-consumer","state":"up","unique_name":":1.2",)"
        R"("bus_names":["com.tarlo.PowerControl.Consumer"],"activatable":false,"registrations":[]},)"
        R"({"name":"power-status","state":"up","unique_name":":1.3",)"
        R"("bus_names":["com.tarlo.PowerControl.Status"],"activatable":false,"registrations":[]},)"
        R"({"name":"controls","state":"up","unique_name":":1.4",)"
        R"("bus_names":["com.tarlo.Onscreencontrols1"],"activatable":false,"registrations":[]},)"
        R"({"name":"overlay","state":"up","unique_name":":1.5","bus_names":)"
        R"(["com.tarlo.PrioritizedTextOverlay"],"activatable":false,"registrations":[]},)"
        R"({"name":"video","state":"up","unique_name":":1.6",)"
        R"("bus_names":["com.tarlo.VideoReady1"],"activatable":false,"registrations":[]},)"
        R"({"name":"init","state":"up","unique_name":":1.7",)"
        R"("bus_names":["org.freedesktop.systemd1"],"activatable":false,"registrations":[]}],)"
        R"("values":{"temperature.main":36.5,"temperature.lens":28.0,)"
        R"("temperature.housing":"nan","power.budget":20.0,"power.left":20.0,)"
        R"("power.received":25.0,"wdr.0":"off","wdr.1":"off","overlay.text":"","video.0":0,)"
        R"("video.1":0,"unit":"enabled"},"faults":[{"member":"GetTemperature","what":)"
        R"("sent after 250 ms, 3 times","times":3}]})"
        "\n");
}

TEST_F(CameraOrders, SetAndClearFaults) {
    open();
    BusClient client(address());
    handle({"fail", "GetTemperature", "--error", "com.example.Error.A", "--probability", "0.5",
            "--seed", "3"});
    handle({"fail", "temperature.GetTemperature", "--malformed"});
    handle({"fail", "temperature.GetTemperature", "--error", "com.example.Error.B"});
    EXPECT_EQ(common::json_line(state()["faults"]),
              R"([{"member":"GetTemperature","what":"answered with com.example.Error.A, with )"
              R"(probability 0.5"},{"member":"temperature.GetTemperature","what":)"
              R"("answered with com.example.Error.B"}])");
    handle({"fail", "temperature.GetTemperature", "--clear"});
    EXPECT_EQ(state()["faults"].size(), 1U);
    handle({"fail", "GetTemperature", "--clear"});
    handle({"fail", "GetTemperature", "--clear"});
    EXPECT_EQ(client.call("GetTemperature", "is", 3, "main"), "(36.5)");
    close();
    EXPECT_EQ(with("\"cleared\"", told()).size(), 2U);
}

TEST_F(CameraOrders, ReachTheCameraAsMethodsToo) {
    open();
    const BusClient client(address());
    const auto call = [&client](const char* member, const char* types, auto... arguments) {
        common::BusError error;
        sd_bus_message* reply = nullptr;
        const int r = sd_bus_call_method(
            client.bus(), camera::camera_control.name, camera::camera_control.path,
            camera::camera_control.interface, member, &error, &reply, types, arguments...);
        const common::MessagePtr owned(reply);
        return r < 0 ? error.text(r) : common::json_line(camera::body_json(*reply));
    };
    const std::string refused = "com.tarlo.Fenwa.Camera1.Error.Refused: ";
    EXPECT_EQ(call("Set", "ss", "temperature.main", "50"), "[]");
    EXPECT_EQ(call("Set", "ss", "temperature.mian", "50"),
              refused + "unknown sensor 'mian'; did you mean 'main'?");
    EXPECT_EQ(call("Fail", "a{sv}", 2, "member", "s", "GetTemperature", "times", "d", 1.5),
              refused + "'times' of a fault must be an integer, not 1.5");
    EXPECT_EQ(call("Fail", "a{sv}", 0),
              refused + "a fault needs 'member', the name of a method, signal or property");
    EXPECT_EQ(call("Fail", "a{sv}", 2, "member", "s", "GetTemperature", "delay", "u", 5U), "[]");
    EXPECT_THAT(call("Set", "s", "temperature.main"),
                StartsWith("org.freedesktop.DBus.Error.InvalidArgs: "));
    EXPECT_THAT(call("Show", ""), ::testing::HasSubstr("sent after 5 ms"));
}

}  // namespace
}  // namespace test
