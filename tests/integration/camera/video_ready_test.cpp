// Channels that clients say have video, and the manager of the init system, which knows the unit.
#include <nlohmann/json.hpp>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

class VideoReadiness : public CameraScene {
  protected:
    /// A client of one channel says that it has video.
    std::string signal(int channel, const char* who = "vipd") {
        const std::string path = "/com/tarlo/VideoReady1/" + std::to_string(channel);
        BusClient client(address(),
                         {camera::video_ready.name, path.c_str(), camera::video_ready.interface});
        client_name_ = client.unique_name();
        return client.call("SignalVideoReady", "s", who);
    }

    std::string client_name_;  ///< unique name of the last client
};

TEST_F(VideoReadiness, IsCountedForEachChannelAndShownWithWhoSaidItLastAndWhen) {
    open();
    EXPECT_EQ(signal(1), "()");
    EXPECT_EQ(signal(1, "other"), "()");
    EXPECT_EQ(value("video.0"), 0);
    EXPECT_EQ(value("video.1"), 2);
    const common::Json shown = service("video")["registrations"];
    ASSERT_EQ(shown.size(), 1U) << "nothing was said of the other channel";
    const double at = shown[0]["at"];
    EXPECT_GT(at, 0.0);
    EXPECT_LT(at, 30.0);
    const std::string time = common::Json(at).dump();
    EXPECT_EQ(common::json_line(shown),
              R"([{"id":1,"client":")" + client_name_ +
                  R"(","what":"\"other\" has video, said 2 times, last at )" + time +
                  R"( s","who":"other","times":2,"at":)" + time + "}]");
    EXPECT_EQ(signal(0), "()");
    EXPECT_EQ(value("video.0"), 1);
}

TEST_F(VideoReadiness, ThereIsAnObjectForEachChannelOfTheConfiguration) {
    open({.run = {"--config", folder().write("c.toml", "[video]\nchannels = 3\n")}});
    EXPECT_EQ(signal(2), "()");
    EXPECT_EQ(value("video.2"), 1);
    EXPECT_EQ(signal(3),
              "org.freedesktop.DBus.Error.UnknownObject: Unknown object "
              "'/com/tarlo/VideoReady1/3'.");
    EXPECT_EQ(value("wdr.2"), "off");
}

TEST_F(VideoReadiness, OutlivesTheClientAndNotARestart) {
    open({.activation = true});
    EXPECT_EQ(signal(0), "()");
    EXPECT_EQ(value("video.0"), 1);
    handle({"restart", "video"});
    EXPECT_EQ(value("video.0"), 0);
    EXPECT_THAT(service("video")["registrations"], IsEmpty());
    handle({"stop", "video"});
    EXPECT_EQ(signal(1), "()") << "a call brings it up";
    EXPECT_EQ(value("video.1"), 1);
}

class InitSystem : public ClientScene {
  protected:
    std::string state_of(const char* unit = "video-ready.service") {
        return call("GetUnitFileState", "s", unit);
    }
};

TEST_F(InitSystem, KnowsTheStateOfOneUnitFile) {
    open_for(camera::init_manager,
             {.run = {"--config", folder().write("c.toml", "[video]\nunit = \"masked\"\n")}});
    EXPECT_EQ(state_of(), "(\"masked\")") << "as in the configuration";
    for (const std::string state : {"masked-runtime", "MASKED", "masked ", "static"}) {
        handle({"set", "unit", state});
        EXPECT_EQ(state_of(), "(\"" + state + "\")");
    }
    EXPECT_EQ(state_of("other.service"),
              "org.freedesktop.DBus.Error.FileNotFound: Unknown unit file 'other.service'.");
    handle({"restart", "init"});
    EXPECT_EQ(state_of(), "(\"static\")") << "the state is the machine's";
}

TEST_F(InitSystem, NoCallBringsItUp) {
    open_for(camera::init_manager, {.own_bus = true});
    handle({"stop", "init"});
    EXPECT_THAT(state_of(), StartsWith("org.freedesktop.DBus.Error.ServiceUnknown: "));
    handle({"start", "init"});
    EXPECT_EQ(state_of(), "(\"enabled\")");
}

// A daemon that was told to have the init system start services would ask it to.
TEST_F(InitSystem, CallsBringTheOthersUpWhileItsNameIsOwned) {
    open({.own_bus = true});
    for (const ServiceNames& service : camera_services) {
        if (std::string(service.name) == "init")
            continue;
        handle({"stop", service.name});
        BusClient client(address(), {service.bus_name, "/", "com.example.A"});
        EXPECT_EQ(client.call("Anything", ""),
                  "org.freedesktop.DBus.Error.UnknownObject: Unknown object '/'.")
            << service.name << " is up and refuses it";
    }
    close();
    EXPECT_THAT(with("\"init\"", told()), SizeIs(3))
        << "it came up, was named as ready, and went down: nobody called it";
}

TEST_F(InitSystem, ANameThatTheMachineHasIsLeftAlone) {
    open_bus({});
    BusClient machine(address(), camera::init_manager);
    common::own_name(*machine.bus(), camera::init_manager.name);
    open_camera({});
    BusClient client(address());
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "main"), "(3)") << "the rest plays";
    const Ended refused = command({"start", "init"});
    EXPECT_EQ(refused.code, 69);
    const std::string owned =
        "cannot own the bus name 'org.freedesktop.systemd1': another connection owns it";
    EXPECT_EQ(refused.err, "fenwa-camera: " + owned + "\n");
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_THAT(with("\"init\"", told()),
                ElementsAre(R"({"event":"service","service":"init","state":"down","why":)"
                            R"("not started: )" +
                            owned + R"("})"));
    EXPECT_THAT(told("ready"), ElementsAre(HasSubstr(R"("controls","overlay","video"]})")));
}

TEST_F(InitSystem, ANameThatTheBusDoesNotGiveIsLeftAlone) {
    open({.format = "text",
          .bus_xml =
              R"(<policy context="mandatory"><deny own="org.freedesktop.systemd1"/></policy>)"});
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_THAT(with("init: ", told()), ElementsAre("init: down: not started: cannot own the bus "
                                                    "name 'org.freedesktop.systemd1': Permission "
                                                    "denied"));
}

}  // namespace
}  // namespace test
