// Services that come and go: by command, and because somebody calls them.
#include <nlohmann/json.hpp>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/bus_daemon.hpp"
#include "tests/support/cutting_relay.hpp"

namespace test {
namespace {

class ControllerLife : public ClientScene {
  protected:
    void connect(Setting setting = {}) {
        open_for(camera::temperature_controller, std::move(setting));
    }
    std::string id_of_main() { return call("GetTemperatureIdFromName", "s", "main"); }
    [[nodiscard]] std::string shown() const { return command({"show"}).out; }
};

const std::string service_unknown = not_activatable(camera::temperature_controller.name);

TEST_F(ControllerLife, AStoppedServiceIsOffTheBusUntilItIsStarted) {
    connect();
    handle({"stop", "temperature"});
    EXPECT_EQ(id_of_main(), service_unknown);
    EXPECT_THAT(shown(), HasSubstr("service temperature: down\n"));
    EXPECT_EQ(service("temperature")["activatable"], false) << "its daemon has no service files";
    handle({"stop", "temperature"});
    handle({"start", "temperature"});
    EXPECT_EQ(id_of_main(), "(3)");
    handle({"start", "temperature"});
    close();
    EXPECT_THAT(told("service"), SizeIs(2 * std::size(camera_services) + 2))
        << "what is so already is no news";
}

TEST_F(ControllerLife, ARestartKeepsValuesAndForgetsRegistrations) {
    connect();
    client_->listen();
    EXPECT_EQ(call("RegisterForTemperatureChangeSignal", "id", 3, 0.0), "(1)");
    handle({"set", "temperature.main", "40"});
    const std::string before = service("temperature")["unique_name"];
    handle({"restart", "temperature"});
    const common::Json now = service("temperature");
    const std::string after = now["unique_name"];
    EXPECT_NE(after, before);
    EXPECT_EQ(now["state"], "up");
    EXPECT_THAT(now["registrations"], IsEmpty());
    EXPECT_EQ(value("temperature.main"), 40.0);
    handle({"set", "temperature.main", "50"});
    EXPECT_EQ(call("GetTemperature", "is", 3, "main"), "(50.0)");
    EXPECT_EQ(call("RegisterForTemperatureChangeSignal", "id", 3, 0.0), "(2)")
        << "an id is never given twice";
    EXPECT_THAT(client_->wait_for(3),
                ElementsAre("TemperatureChangeSignal(1, 40.0)", "owner " + before + " -> none",
                            "owner none -> " + after));
    close();
    EXPECT_THAT(with("restarting", told()), SizeIs(1));
}

// A daemon may read of the end of a connection later than of the beginning of the next one.
TEST_F(ControllerLife, AServiceIsBackAtOnceHoweverLateTheDaemonSeesItsEnd) {
    open_bus({});
    const CuttingRelay relay(address(), folder().path() / "late", {}, milliseconds(60));
    const std::unique_ptr<Process> late_camera =
        start({"run", "--bus", relay.address(), "--format", "json"});
    late_camera->wait_for_text("\"ready\"");
    handle({"restart", "temperature"});
    handle({"stop", "temperature"});
    handle({"start", "temperature"});
    EXPECT_EQ(service("temperature")["state"], "up");
    EXPECT_EQ(late_camera->terminate().code, 0);
}

TEST_F(ControllerLife, ACallBringsAStoppedServiceBackAndIsAnswered) {
    connect({.own_bus = true});
    EXPECT_EQ(call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(1)");
    handle({"stop", "temperature"});
    handle({"stop", "init"});
    EXPECT_THAT(shown(), HasSubstr("service temperature: down, a call brings it up\n"));
    EXPECT_THAT(shown(), HasSubstr("service init: down\n"));
    EXPECT_EQ(service("temperature")["activatable"], true);
    EXPECT_EQ(service("init")["activatable"], false);
    EXPECT_EQ(call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(2)");
    close();
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
    EXPECT_THAT(with("\"service\":\"temperature\",\"state\":\"up\"", told()), SizeIs(2));
    expect_nothing_left();
}

TEST_F(ControllerLife, WithoutTheServiceOrActivationACallIsRefusedUntilItIsStarted) {
    for (const Lines& options :
         std::vector<Lines>{{"--without", "temperature"}, {"--no-activation"}}) {
        connect({.run = options, .own_bus = true});
        handle({"stop", "temperature"});
        EXPECT_EQ(id_of_main(), service_unknown);
        EXPECT_THAT(shown(), HasSubstr("service temperature: down\n"));
        handle({"start", "temperature"});
        EXPECT_EQ(id_of_main(), "(3)");
        handle({"stop", "temperature"});
        EXPECT_EQ(id_of_main(), service_unknown);
    }
}

// The bus has a service file, the camera does not want to be woken by it.
TEST_F(ControllerLife, AServiceThatIsNotToBeActivatedStaysDown) {
    connect({.activation = true, .run = {"--no-activation"}});
    handle({"stop", "temperature"});
    EXPECT_THAT(id_of_main(), StartsWith(activation_failed_error() + ": "));
    EXPECT_EQ(service("temperature")["state"], "down");
    EXPECT_EQ(service("temperature")["activatable"], false);
    for (const std::string name : {"temperature", "init"}) {
        // dbus-daemon tells a program the bus that it is started for, a service manager that of
        // the session; the former counts.
        for (const std::map<std::string, std::string>& bus :
             {std::map<std::string, std::string>{
                  {"DBUS_STARTER_ADDRESS", address()},
                  {"DBUS_SESSION_BUS_ADDRESS", unreachable_system_bus}},
              {{"DBUS_STARTER_ADDRESS", ""}, {"DBUS_SESSION_BUS_ADDRESS", address()}}}) {
            const Ended direct = run({"activate", name}, bus);
            EXPECT_EQ(direct.code, 1);
            EXPECT_EQ(direct.err, "fenwa-camera: the service '" + name + "' cannot be activated\n");
        }
    }
}

TEST_F(ControllerLife, AskingAloneForTheOwnerActivatesNothing) {
    connect({.activation = true});
    handle({"stop", "temperature"});
    const common::MessagePtr message = client_->new_call("GetTemperatureIdFromName", "s", "main");
    common::check(sd_bus_message_set_auto_start(message.get(), 0), "sd_bus_message_set_auto_start");
    EXPECT_THAT(client_->call(message, seconds(20)), StartsWith("org.freedesktop.DBus.Error."));
    EXPECT_EQ(service("temperature")["state"], "down");
}

}  // namespace
}  // namespace test
