// Services that come and go: by order, and because somebody calls them.
#include <gmock/gmock.h>

#include "camera/bus/names.hpp"
#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using ControllerLife = CameraScene;

const std::string service_unknown =
    "org.freedesktop.DBus.Error.ServiceUnknown: The name com.tarlo.TemperatureController was not "
    "provided by any .service files";

std::string id_of_main(BusClient& client) {
    return client.call("GetTemperatureIdFromName", "s", "main");
}

TEST_F(ControllerLife, AStoppedServiceIsOffTheBusUntilItIsStarted) {
    open();
    BusClient client(address());
    client.listen();
    handle({"stop", "temperature"});
    EXPECT_EQ(id_of_main(client), service_unknown);
    handle({"stop", "temperature"});
    handle({"start", "temperature"});
    EXPECT_EQ(id_of_main(client), "(3)");
    handle({"start", "temperature"});
    close();
    EXPECT_EQ(with(R"("event":"service")", told()).size(), 2 * std::size(camera_services) + 2)
        << "what is so already is no news";
}

TEST_F(ControllerLife, ARestartKeepsValuesAndForgetsRegistrations) {
    open();
    BusClient client(address());
    client.listen();
    EXPECT_EQ(client.call("RegisterForTemperatureChangeSignal", "id", 3, 0.0), "(1)");
    handle({"set", "temperature.main", "40"});
    const std::string before = state()["services"][0]["unique_name"];
    handle({"restart", "temperature"});
    const common::Json now = state();
    const std::string after = now["services"][0]["unique_name"];
    EXPECT_NE(after, before);
    EXPECT_EQ(now["services"][0]["state"], "up");
    EXPECT_THAT(now["services"][0]["registrations"], IsEmpty());
    EXPECT_EQ(now["values"]["temperature.main"], 40.0);
    handle({"set", "temperature.main", "50"});
    EXPECT_EQ(client.call("GetTemperature", "is", 3, "main"), "(50.0)");
    EXPECT_EQ(client.call("RegisterForTemperatureChangeSignal", "id", 3, 0.0), "(2)")
        << "an id is never given twice";
    EXPECT_THAT(client.wait_for(3),
                ElementsAre("TemperatureChangeSignal(1, 40.0)", "owner " + before + " -> none",
                            "owner none -> " + after));
    close();
    EXPECT_EQ(with("restarting", told()).size(), 1U);
}

TEST_F(ControllerLife, WithoutAServiceItsCallsAreRefusedUntilItIsStarted) {
    const auto camera =
        start({"run", "--private-bus", "--without", "temperature", "--format", "json"});
    const auto line = camera->wait_for_text("\"ready\"");
    ASSERT_TRUE(line) << camera->err();
    const std::string own = address_in(*line);
    BusClient client(own);
    EXPECT_EQ(id_of_main(client), service_unknown);
    EXPECT_EQ(run({"start", "temperature", "--bus", own}).code, 0);
    EXPECT_EQ(id_of_main(client), "(3)");
    EXPECT_EQ(run({"stop", "temperature", "--bus", own}).code, 0);
    EXPECT_EQ(id_of_main(client), service_unknown);
    EXPECT_EQ(camera->terminate().code, 0);
}

TEST_F(ControllerLife, ACallBringsAStoppedServiceBackAndIsAnswered) {
    const auto camera = start({"run", "--private-bus", "--format", "json"});
    const auto line = camera->wait_for_text("\"ready\"");
    ASSERT_TRUE(line) << camera->err();
    const std::string own = address_in(*line);
    BusClient client(own);
    EXPECT_EQ(client.call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(1)");
    EXPECT_EQ(run({"stop", "temperature", "--bus", own}).code, 0);
    EXPECT_THAT(run({"show", "--bus", own}).out,
                HasSubstr("service temperature: down, a call brings it up\n"));
    EXPECT_EQ(client.call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(2)");
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(with("\"service\":\"temperature\",\"state\":\"up\"", lines(ended.out)).size(), 2U);
    EXPECT_THAT(left_behind(), IsEmpty());
}

TEST_F(ControllerLife, ACallBringsADroppedServiceBack) {
    open({.activation = true});
    BusClient client(address());
    handle({"fail", "GetTemperatureIdFromName", "--drop", "--times", "1"});
    EXPECT_THAT(id_of_main(client), StartsWith("org.freedesktop.DBus.Error.NoReply: "));
    EXPECT_EQ(id_of_main(client), "(3)");
}

TEST_F(ControllerLife, WithoutActivationACallIsRefusedAtOnce) {
    const auto camera = start({"run", "--private-bus", "--no-activation", "--format", "json"});
    const auto line = camera->wait_for_text("\"ready\"");
    ASSERT_TRUE(line) << camera->err();
    const std::string own = address_in(*line);
    BusClient client(own);
    EXPECT_EQ(id_of_main(client), "(3)");
    EXPECT_EQ(run({"stop", "temperature", "--bus", own}).code, 0);
    EXPECT_EQ(id_of_main(client), service_unknown);
    EXPECT_THAT(run({"show", "--bus", own}).out, HasSubstr("service temperature: down\n"));
    EXPECT_EQ(run({"start", "temperature", "--bus", own}).code, 0);
    EXPECT_EQ(id_of_main(client), "(3)");
    EXPECT_EQ(camera->terminate().code, 0);
}

// The bus has a service file, the camera does not want to be woken by it.
TEST_F(ControllerLife, AServiceThatIsNotToBeActivatedStaysDown) {
    open({.activation = true, .run = {"--no-activation"}});
    BusClient client(address());
    handle({"stop", "temperature"});
    EXPECT_THAT(id_of_main(client), StartsWith("org.freedesktop.DBus.Error.Spawn.ChildExited: "));
    EXPECT_EQ(state()["services"][0]["state"], "down");
    EXPECT_EQ(state()["services"][0]["activatable"], false);
    const Ended direct = run({"activate", "temperature"}, {{"DBUS_STARTER_ADDRESS", address()}});
    EXPECT_EQ(direct.code, 1);
    EXPECT_EQ(direct.err, "fenwa-camera: the service 'temperature' cannot be activated\n");
}

// The bus is somebody else's, and its daemon knows nothing of the camera.
TEST_F(ControllerLife, OnABusWithoutServiceFilesNothingSaysThatACallBringsItUp) {
    open();
    BusClient client(address());
    handle({"stop", "temperature"});
    EXPECT_EQ(id_of_main(client), service_unknown);
    EXPECT_THAT(order({"show"}).out, HasSubstr("service temperature: down\n"));
    EXPECT_EQ(service("temperature")["activatable"], false);
}

TEST_F(ControllerLife, WhereACallBringsItUpItIsSaid) {
    open({.activation = true});
    handle({"stop", "temperature"});
    handle({"stop", "init"});
    const std::string shown = order({"show"}).out;
    EXPECT_THAT(shown, HasSubstr("service temperature: down, a call brings it up\n"));
    EXPECT_THAT(shown, HasSubstr("service init: down\n"));
    EXPECT_EQ(service("temperature")["activatable"], true);
    EXPECT_EQ(service("init")["activatable"], false);
}

TEST_F(ControllerLife, AskingAloneForTheOwnerActivatesNothing) {
    open({.activation = true});
    BusClient client(address());
    handle({"stop", "temperature"});
    const common::MessagePtr call = client.new_call("GetTemperatureIdFromName", "s", "main");
    common::check(sd_bus_message_set_auto_start(call.get(), 0), "sd_bus_message_set_auto_start");
    EXPECT_THAT(client.call(call, std::chrono::seconds(20)),
                StartsWith("org.freedesktop.DBus.Error."));
    EXPECT_EQ(state()["services"][0]["state"], "down");
}

}  // namespace
}  // namespace test
