// The manager of the init system, as far as it is played, and a bus that has one already.
#include <gmock/gmock.h>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class InitSystem : public CameraScene {
  protected:
    static std::string state_of(BusClient& client, const char* unit = "video-ready.service") {
        return client.call("GetUnitFileState", "s", unit);
    }
};

TEST_F(InitSystem, KnowsTheStateOfOneUnitFile) {
    open();
    BusClient client(address(), camera::init_manager);
    EXPECT_EQ(state_of(client), "(\"enabled\")");
    for (const std::string state : {"masked", "masked-runtime", "MASKED", "masked ", "static"}) {
        handle({"set", "unit", state});
        EXPECT_EQ(state_of(client), "(\"" + state + "\")");
    }
    EXPECT_EQ(state_of(client, "other.service"),
              "org.freedesktop.DBus.Error.FileNotFound: Unknown unit file 'other.service'.");
    handle({"restart", "init"});
    EXPECT_EQ(state_of(client), "(\"static\")") << "the state is the machine's";
}

TEST_F(InitSystem, BeginsInTheStateOfTheConfiguration) {
    open({.run = {"--config", folder().write("c.toml", "[video]\nunit = \"masked\"\n")}});
    BusClient client(address(), camera::init_manager);
    EXPECT_EQ(state_of(client), "(\"masked\")");
}

TEST_F(InitSystem, MayFail) {
    open();
    BusClient client(address(), camera::init_manager);
    handle({"fail", "GetUnitFileState", "--malformed", "--times", "1"});
    EXPECT_EQ(state_of(client), "(-1)");
    handle({"fail", "init.GetUnitFileState", "--error", "com.example.Error.Busy", "--times", "1"});
    EXPECT_EQ(state_of(client), "com.example.Error.Busy: A fault rule answers this call.");
    EXPECT_EQ(state_of(client), "(\"enabled\")");
}

TEST_F(InitSystem, NoCallBringsItUp) {
    const auto camera = start({"run", "--private-bus", "--format", "json"});
    const auto line = camera->wait_for_text("\"ready\"");
    ASSERT_TRUE(line) << camera->err();
    const std::string own = address_in(*line);
    BusClient client(own, camera::init_manager);
    EXPECT_EQ(run({"stop", "init", "--bus", own}).code, 0);
    EXPECT_THAT(state_of(client), StartsWith("org.freedesktop.DBus.Error.ServiceUnknown: "));
    EXPECT_THAT(run({"show", "--bus", own}).out, HasSubstr("service init: down\n"));
    EXPECT_EQ(run({"start", "init", "--bus", own}).code, 0);
    EXPECT_EQ(state_of(client), "(\"enabled\")");
    EXPECT_EQ(camera->terminate().code, 0);
}

// A daemon that was told to have the init system start services would ask it to.
TEST_F(InitSystem, CallsBringTheOthersUpWhileItsNameIsOwned) {
    const auto camera = start({"run", "--private-bus", "--format", "json"});
    const auto line = camera->wait_for_text("\"ready\"");
    ASSERT_TRUE(line) << camera->err();
    const std::string own = address_in(*line);
    for (const ServiceNames& service : camera_services) {
        if (std::string(service.name) == "init")
            continue;
        EXPECT_EQ(run({"stop", service.name, "--bus", own}).code, 0);
        BusClient client(own, {service.bus_name, "/", "com.example.A"});
        EXPECT_EQ(client.call("Anything", ""),
                  "org.freedesktop.DBus.Error.UnknownObject: Unknown object '/'.")
            << service.name << " is up and refuses it";
    }
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(with("\"init\"", lines(ended.out)).size(), 3U)
        << "it came up, was named as ready, and went down: nobody called it";
}

TEST_F(InitSystem, ANameThatTheMachineHasIsLeftAlone) {
    common::PrivateBus bus;
    BusClient machine(bus.address(), camera::init_manager);
    common::own_name(*machine.bus(), camera::init_manager.name);
    const auto camera = start({"run", "--bus", bus.address(), "--format", "json"});
    ASSERT_TRUE(camera->wait_for_text("\"ready\"")) << camera->err();
    BusClient client(bus.address());
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "main"), "(3)") << "the rest plays";
    const Ended refused = run({"start", "init", "--bus", bus.address()});
    EXPECT_EQ(refused.code, 69);
    EXPECT_EQ(refused.err,
              "fenwa-camera: cannot own the bus name 'org.freedesktop.systemd1': another "
              "connection owns it\n");
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(with("\"init\"", lines(ended.out)),
                ElementsAre(R"({"event":"service","service":"init","state":"down","why":)"
                            R"("not started: cannot own the bus name 'org.freedesktop.systemd1': )"
                            R"(another connection owns it"})"));
    EXPECT_THAT(with("\"ready\"", lines(ended.out)),
                ElementsAre(HasSubstr(R"("controls","overlay","video"]})")));
}

TEST_F(InitSystem, ANameThatTheBusDoesNotGiveIsLeftAlone) {
    common::PrivateBusOptions options;
    options.extra_xml = R"(<policy context="mandatory"><deny own="org.freedesktop.systemd1"/>)"
                        "</policy>";
    common::PrivateBus bus(options);
    const auto camera = start({"run", "--bus", bus.address(), "--format", "text"});
    ASSERT_TRUE(camera->wait_for_text("ready on")) << camera->err();
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_THAT(with("init: ", lines(ended.out)),
                ElementsAre("init: down: not started: cannot own the bus name "
                            "'org.freedesktop.systemd1': Permission denied"));
}

}  // namespace
}  // namespace test
