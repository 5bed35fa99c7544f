// Calls and signals that go wrong: each effect on each service, then how they mix.
#include <csignal>
#include <functional>
#include <nlohmann/json.hpp>

#include "camera/service/properties.hpp"
#include "tests/integration/camera/camera_scene.hpp"
#include "tests/integration/camera/wdr_document.hpp"
#include "tests/support/bus_daemon.hpp"

namespace test {
namespace {

const std::string no_reply = "org.freedesktop.DBus.Error.NoReply: ";
const std::string disconnected = no_reply + receiver_left_text();

/// A service with one of its methods.
struct Method {
    std::string service;
    camera::BusObject object;
    const char* member;
    std::function<common::MessagePtr(const BusClient&, const char* member)> new_call;
    std::string answer = "()";
    std::size_t registrations = 1;  ///< that a call leaves
    std::string malformed = "(\"malformed\")";
};
void PrintTo(const Method& method, std::ostream* out) {
    *out << method.service << '.' << method.member;
}

class MethodFaults : public ClientScene, public ::testing::WithParamInterface<Method> {
  protected:
    void SetUp() override { open_for(GetParam().object, {.activation = true}); }

    void fail_once(const std::vector<std::string>& effect) {
        fail(Lines{GetParam().service + '.' + GetParam().member, "--times", "1"} + effect);
    }
    std::string answer(milliseconds limit = seconds(20)) {
        return client_->call(GetParam().new_call(*client_, GetParam().member), limit);
    }
    [[nodiscard]] std::size_t registrations() const {
        return service(GetParam().service)["registrations"].size();
    }
};

TEST_P(MethodFaults, AnErrorAnswersInPlaceOfTheService) {
    fail_once({"--error", "com.example.Error.Busy"});
    EXPECT_EQ(answer(), busy);
    EXPECT_EQ(registrations(), 0U) << "the call was not served";
    EXPECT_EQ(answer(), GetParam().answer);
    EXPECT_EQ(registrations(), GetParam().registrations);
}

TEST_P(MethodFaults, ASilentOneIsNeverAnswered) {
    fail_once({"--silent"});
    EXPECT_EQ(answer(milliseconds(300)),
              "org.freedesktop.DBus.Error.Timeout: Connection timed out");
    EXPECT_EQ(registrations(), 0U) << "the call was not served";
    EXPECT_EQ(answer(), GetParam().answer);
}

TEST_P(MethodFaults, AMalformedReplyComesFromACallThatIsServed) {
    fail_once({"--malformed"});
    EXPECT_EQ(answer(), GetParam().malformed);
    EXPECT_EQ(registrations(), GetParam().registrations);
}

TEST_P(MethodFaults, ADropTakesTheServiceOffTheBusUntilTheNextCall) {
    fail_once({"--drop"});
    EXPECT_EQ(answer(), disconnected);
    if (GetParam().service == "init")  // which no call brings up
        handle({"start", "init"});
    EXPECT_EQ(answer(), GetParam().answer);
    close();
    EXPECT_THAT(with(R"("state":"down","why":"dropped by a fault"})", told()), SizeIs(1));
}

/// A call with these arguments.
template <class... Arguments>
auto with_arguments(const char* types, Arguments... arguments) {
    return [=](const BusClient& client, const char* member) {
        return client.new_call(member, types, arguments...);
    };
}

const std::string document = wdr_document(1);

INSTANTIATE_TEST_SUITE_P(
    Service, MethodFaults,
    ::testing::Values(
        Method{"temperature", camera::temperature_controller, "RegisterForTemperatureChangeSignal",
               with_arguments("id", 3, 0.5), "(1)"},
        Method{"power-consumer", camera::power_consumers, "Register",
               with_arguments("sbsss", "vipd0", 0, "com.tarlo.Vipd.ch0", "/", "com.example.A")},
        Method{"power-status",
               {camera::power_status.name, camera::power_status.path, camera::properties_interface},
               "Get",
               with_arguments("ss", "com.tarlo.PowerControl.Status", "PowerReceived"),
               "(25.0)",
               0},
        Method{"controls", camera::onscreen_controls, "AddFeatures",
               with_arguments("sssa{sv}", "en-us", "English", document.c_str(), 0)},
        Method{"overlay", camera::text_overlay, "Set", with_arguments("su", "Too hot", 0U)},
        Method{
            "video",
            {camera::video_ready.name, "/com/tarlo/VideoReady1/0", camera::video_ready.interface},
            "SignalVideoReady",
            with_arguments("s", "vipd")},
        Method{"init", camera::init_manager, "GetUnitFileState",
               with_arguments("s", "video-ready.service"), "(\"enabled\")", 0, "(-1)"}),
    [](const auto& method) {
        std::string name = method.param.service;
        std::erase(name, '-');
        return name;
    });

class ControllerFaults : public ClientScene {
  protected:
    void SetUp() override {
        open_for(camera::temperature_controller);
        client_->listen();
    }

    std::string reading() { return call("GetTemperature", "is", 3, "main"); }
    /// Asks for the temperature, which a rule spoils, and for a sensor's id.
    void ask_for_both() {
        send("GetTemperature", "is", 3, "main");
        send("GetTemperatureIdFromName", "s", "main");
    }
};

TEST_F(ControllerFaults, ALateReplyHoldsNothingElseUp) {
    fail({"GetTemperature", "--delay", "2000"});
    const auto begin = steady_clock::now();
    ask_for_both();
    client_->wait_for(1);
    handle({"set", "temperature.main", "40"});
    EXPECT_LT(steady_clock::now() - begin, milliseconds(2000)) << "this machine is too slow";
    EXPECT_THAT(client_->wait_for(2), ElementsAre("GetTemperatureIdFromName answers (3)",
                                                  "GetTemperature answers (36.5)"));
    EXPECT_GE(steady_clock::now() - begin, milliseconds(2000));
}

TEST_F(ControllerFaults, LateRepliesOverlapAndKeepTheirOrder) {
    fail({"RegisterForTemperatureChangeSignal", "--delay", "1000"});
    const auto begin = steady_clock::now();
    Lines expected;
    for (int i = 1; i <= 5; ++i) {
        send("RegisterForTemperatureChangeSignal", "id", 3, 0.5);
        expected.push_back("RegisterForTemperatureChangeSignal answers (" + std::to_string(i) +
                           ")");
    }
    EXPECT_EQ(client_->wait_for(5), expected);
    EXPECT_LT(steady_clock::now() - begin, milliseconds(5 * 1000));
}

TEST_F(ControllerFaults, AnErrorAndAMalformedReplyMayBeLateToo) {
    for (const auto& [effect, answer] : std::vector<std::pair<Lines, std::string>>{
             {{"--error", "com.example.Error.Busy"}, busy}, {{"--malformed"}, "(\"malformed\")"}}) {
        fail(Lines{"GetTemperature", "--delay", "1000"} + effect);
        ask_for_both();
        EXPECT_THAT(client_->wait_for(2), ElementsAre("GetTemperatureIdFromName answers (3)",
                                                      "GetTemperature answers " + answer));
        client_->forget();
    }
}

TEST_F(ControllerFaults, ADropComesBeforeWhatElseWouldBeAnswered) {
    fail({"GetTemperature", "--drop"});
    // Both calls are to be there when the camera looks. It sleeps until the daemon, which takes
    // what one client sends in its order, has handed them on.
    const pid_t playing = player(camera());
    kill(playing, SIGSTOP);
    ask_for_both();
    common::check(
        sd_bus_call_method(client_->bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "GetId", nullptr, nullptr, nullptr),
        "GetId");
    kill(playing, SIGCONT);
    client_->wait_for(3);
    EXPECT_EQ(client_->heard().front(), "owner :1.1 -> none");
    EXPECT_THAT(client_->heard(),
                ::testing::UnorderedElementsAre(
                    "owner :1.1 -> none", "GetTemperature answers " + disconnected,
                    "GetTemperatureIdFromName answers " + disconnected));
    handle({"start", "temperature"});
    EXPECT_EQ(reading(), disconnected) << "the rule is in force still";
}

TEST_F(ControllerFaults, ALateDropLetsTheServiceWorkUntilThen) {
    fail({"GetTemperature", "--drop", "--delay", "1000"});
    ask_for_both();
    EXPECT_THAT(client_->wait_for(3),
                ElementsAre("GetTemperatureIdFromName answers (3)", "owner :1.1 -> none",
                            "GetTemperature answers " + disconnected));
}

TEST_F(ControllerFaults, ALateReplyIsLostWithItsService) {
    fail({"GetTemperature", "--delay", "2000", "--times", "1"});
    ask_for_both();
    client_->wait_for(1);
    handle({"restart", "temperature"});
    EXPECT_THAT(
        client_->wait_for(4),
        ElementsAre("GetTemperatureIdFromName answers (3)", "owner :1.1 -> none",
                    "GetTemperature answers " + disconnected, StartsWith("owner none -> :1.")));
    // Long enough for the reply to come, were it still on its way.
    fail({"GetTemperature", "--delay", "2200", "--times", "1"});
    EXPECT_EQ(reading(), "(36.5)");
    close();
    EXPECT_EQ(ended().code, 0) << ended().err;
    EXPECT_THAT(with("\"member\":\"GetTemperature\"", told("reply")), SizeIs(1));
}

TEST_F(ControllerFaults, ARuleHitsItsNumberOfCallsAndIsTold) {
    fail({"temperature.GetTemperature", "--error", "com.example.Error.Busy", "--times", "2"});
    EXPECT_EQ(reading(), busy);
    EXPECT_EQ(common::json_line(state()["faults"]),
              R"([{"member":"temperature.GetTemperature","what":)"
              R"("answered with com.example.Error.Busy, 1 time","times":1}])");
    EXPECT_EQ(reading(), busy);
    EXPECT_EQ(reading(), "(36.5)");
    EXPECT_EQ(common::json_line(state()["faults"]), "[]");
    close();
    const std::string rule = R"("member":"temperature.GetTemperature","what":"answered with )"
                             R"(com.example.Error.Busy)";
    EXPECT_THAT(told("fault"),
                ElementsAre(R"({"event":"fault","state":"set",)" + rule + R"(, 2 times"})",
                            R"({"event":"fault","state":"applied",)" + rule + R"("})",
                            R"({"event":"fault","state":"applied",)" + rule + R"("})",
                            R"({"event":"fault","state":"spent",)" + rule + R"("})"));
}

TEST_F(ControllerFaults, AProbabilityWithASeedHitsTheSameCallsEveryTime) {
    for (int round = 0; round < 2; ++round) {
        fail({"GetTemperature", "--error", "com.example.Error.Busy", "--probability", "0.5",
              "--seed", "7"});
        std::string hits;
        for (int i = 0; i < 16; ++i)
            hits += reading() == busy ? 'x' : '.';
        EXPECT_EQ(hits, "..x.xx..x...xx.x");
    }
}

TEST_F(ControllerFaults, SignalsGoWrongToo) {
    EXPECT_EQ(call("RegisterForTemperatureChangeSignal", "id", 3, 0.0), "(1)");
    EXPECT_EQ(call("RegisterForTemperatureSignal", "idb", 3, 60.0, 1), "(2, false)");
    fail({"TemperatureChangeSignal", "--silent", "--times", "1"});
    handle({"set", "temperature.main", "40"});
    fail({"TemperatureChangeSignal", "--malformed", "--times", "1"});
    handle({"set", "temperature.main", "41"});
    fail({"TemperatureChangeSignal", "--delay", "2000", "--times", "1"});
    handle({"set", "temperature.main", "42"});
    handle({"set", "temperature.main", "43"});
    EXPECT_THAT(client_->wait_for(3), ElementsAre("TemperatureChangeSignal(\"malformed\")",
                                                  "TemperatureChangeSignal(1, 43.0)",
                                                  "TemperatureChangeSignal(1, 42.0)"));
    fail({"TemperatureChangeSignal", "--silent"});
    fail({"TemperatureSignal", "--malformed"});
    handle({"set", "temperature.main", "61"});
    EXPECT_EQ(client_->wait_for(4).back(), "TemperatureSignal(\"malformed\")");
    fail({"TemperatureChangeSignal", "--drop"});
    handle({"set", "temperature.main", "44"});
    EXPECT_EQ(client_->wait_for(5).back(), "owner :1.1 -> none");
    EXPECT_EQ(value("temperature.main"), 44.0);
}

}  // namespace
}  // namespace test
