#include <gmock/gmock.h>

#include <csignal>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const std::string no_reply = "org.freedesktop.DBus.Error.NoReply: ";
const std::string disconnected =
    no_reply + "Message recipient disconnected from message bus without replying";
const std::string busy = "com.example.Error.Busy: A fault rule answers this call.";

class ControllerFaults : public CameraScene {
  protected:
    void SetUp() override {
        open();
        client_ = std::make_unique<BusClient>(address());
        client_->listen();
    }

    /// Sets a rule: {"GetTemperature", "--silent"}.
    void fail(std::vector<std::string> rule) {
        rule.insert(rule.begin(), "fail");
        handle(rule);
    }

    std::string reading() { return client_->call("GetTemperature", "is", 3, "main"); }

    std::unique_ptr<BusClient> client_;
};

TEST_F(ControllerFaults, ALateReplyHoldsNothingElseUp) {
    fail({"GetTemperature", "--delay", "2000"});
    const auto begin = steady_clock::now();
    client_->send("GetTemperature", "is", 3, "main");
    client_->send("GetTemperatureIdFromName", "s", "main");
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
        client_->send("RegisterForTemperatureChangeSignal", "id", 3, 0.5);
        expected.push_back("RegisterForTemperatureChangeSignal answers (" + std::to_string(i) +
                           ")");
    }
    EXPECT_EQ(client_->wait_for(5), expected);
    EXPECT_LT(steady_clock::now() - begin, milliseconds(5 * 1000));
}

TEST_F(ControllerFaults, ASilentMethodIsNeverAnswered) {
    fail({"RegisterForTemperatureChangeSignal", "--silent"});
    EXPECT_EQ(client_->call(client_->new_call("RegisterForTemperatureChangeSignal", "id", 3, 0.5),
                            milliseconds(300)),
              "org.freedesktop.DBus.Error.Timeout: Connection timed out");
    EXPECT_EQ(reading(), "(36.5)");
    EXPECT_THAT(state()["services"][0]["registrations"], IsEmpty()) << "the call was not served";
    fail({"RegisterForTemperatureChangeSignal", "--clear"});
    EXPECT_EQ(client_->call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(1)");
}

TEST_F(ControllerFaults, AnErrorAnswersInPlaceOfTheService) {
    fail({"RegisterForTemperatureChangeSignal", "--error", "com.example.Error.Busy"});
    EXPECT_EQ(client_->call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), busy);
    EXPECT_THAT(state()["services"][0]["registrations"], IsEmpty());
    EXPECT_EQ(reading(), "(36.5)");
}

TEST_F(ControllerFaults, AnErrorMayBeLate) {
    fail({"GetTemperature", "--error", "com.example.Error.Busy", "--delay", "1000"});
    client_->send("GetTemperature", "is", 3, "main");
    client_->send("GetTemperatureIdFromName", "s", "main");
    EXPECT_THAT(client_->wait_for(2), ElementsAre("GetTemperatureIdFromName answers (3)",
                                                  "GetTemperature answers " + busy));
}

TEST_F(ControllerFaults, AMalformedReplyComesFromACallThatIsServed) {
    fail({"RegisterForTemperatureChangeSignal", "--malformed", "--times", "1"});
    EXPECT_EQ(client_->call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(\"malformed\")");
    EXPECT_THAT(state()["services"][0]["registrations"].size(), 1U);
    EXPECT_EQ(client_->call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(2)");
}

TEST_F(ControllerFaults, AMalformedReplyMayBeLate) {
    fail({"GetTemperature", "--malformed", "--delay", "1000"});
    client_->send("GetTemperature", "is", 3, "main");
    client_->send("GetTemperatureIdFromName", "s", "main");
    EXPECT_THAT(client_->wait_for(2), ElementsAre("GetTemperatureIdFromName answers (3)",
                                                  "GetTemperature answers (\"malformed\")"));
}

TEST_F(ControllerFaults, ADropTakesTheServiceOffTheBus) {
    fail({"GetTemperature", "--drop"});
    client_->send("GetTemperature", "is", 3, "main");
    EXPECT_THAT(client_->wait_for(2),
                ElementsAre("owner :1.1 -> none", "GetTemperature answers " + disconnected));
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "s", "main"),
              "org.freedesktop.DBus.Error.ServiceUnknown: The name com.tarlo.TemperatureController "
              "was not provided by any .service files");
    handle({"start", "temperature"});
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "s", "main"), "(3)");
    EXPECT_EQ(reading(), disconnected) << "the rule is in force still";
    close();
    EXPECT_EQ(with(R"("state":"down","why":"dropped by a fault"})", told()).size(), 2U);
}

TEST_F(ControllerFaults, ADropComesBeforeWhatElseWouldBeAnswered) {
    fail({"GetTemperature", "--drop"});
    // Both calls are to be there when the camera looks. It sleeps until the daemon, which takes
    // what one client sends in its order, has handed them on.
    const pid_t playing = player(camera());
    kill(playing, SIGSTOP);
    client_->send("GetTemperature", "is", 3, "main");
    client_->send("GetTemperatureIdFromName", "s", "main");
    common::check(
        sd_bus_call_method(client_->bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "GetId", nullptr, nullptr, nullptr),
        "GetId");
    kill(playing, SIGCONT);
    client_->wait_for(3);
    EXPECT_EQ(client_->heard().front(), "owner :1.1 -> none");
    EXPECT_THAT(client_->heard(),
                UnorderedElementsAre("owner :1.1 -> none", "GetTemperature answers " + disconnected,
                                     "GetTemperatureIdFromName answers " + disconnected));
}

TEST_F(ControllerFaults, ALateDropLetsTheServiceWorkUntilThen) {
    fail({"GetTemperature", "--drop", "--delay", "1000"});
    client_->send("GetTemperature", "is", 3, "main");
    client_->send("GetTemperatureIdFromName", "s", "main");
    EXPECT_THAT(client_->wait_for(3),
                ElementsAre("GetTemperatureIdFromName answers (3)", "owner :1.1 -> none",
                            "GetTemperature answers " + disconnected));
}

TEST_F(ControllerFaults, ALateReplyIsLostWithItsService) {
    fail({"GetTemperature", "--delay", "2000", "--times", "1"});
    client_->send("GetTemperature", "is", 3, "main");
    client_->send("GetTemperatureIdFromName", "s", "main");
    client_->wait_for(1);
    handle({"restart", "temperature"});
    EXPECT_THAT(client_->wait_for(4),
                ElementsAre("GetTemperatureIdFromName answers (3)", "owner :1.1 -> none",
                            "GetTemperature answers " + disconnected,
                            ::testing::StartsWith("owner none -> :1.")));
    // Long enough for the reply to come, were it still on its way.
    fail({"GetTemperature", "--delay", "2200", "--times", "1"});
    EXPECT_EQ(reading(), "(36.5)");
    close();
    EXPECT_EQ(ended().code, 0) << ended().err;
    EXPECT_EQ(with(R"("reply","service":"temperature","member":"GetTemperature",)", told()).size(),
              1U);
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
    EXPECT_THAT(with("\"fault\"", told()),
                ElementsAre(R"({"event":"fault","state":"set",)" + rule + R"(, 2 times"})",
                            R"({"event":"fault","state":"applied",)" + rule + R"("})",
                            R"({"event":"fault","state":"applied",)" + rule + R"("})",
                            R"({"event":"fault","state":"spent",)" + rule + R"("})"));
}

TEST_F(ControllerFaults, ACallThatIsRefusedAnywayDoesNotUseARuleUp) {
    fail({"GetTemperature", "--silent", "--times", "1"});
    EXPECT_EQ(client_->call("GetTemperature", "s", "main"),
              "org.freedesktop.DBus.Error.InvalidArgs: GetTemperature takes 'is', not 's'.");
    EXPECT_EQ(state()["faults"].size(), 1U);
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
    EXPECT_EQ(client_->call("RegisterForTemperatureChangeSignal", "id", 3, 0.0), "(1)");
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
    fail({"TemperatureChangeSignal", "--drop"});
    handle({"set", "temperature.main", "44"});
    EXPECT_EQ(client_->wait_for(4).back(), "owner :1.1 -> none");
    EXPECT_EQ(state()["values"]["temperature.main"], 44.0);
}

TEST_F(ControllerFaults, LateSignalsKeepTheirOrder) {
    EXPECT_EQ(client_->call("RegisterForTemperatureChangeSignal", "id", 3, 0.0), "(1)");
    fail({"TemperatureChangeSignal", "--delay", "150"});
    Lines expected;
    for (int temperature = 40; temperature < 45; ++temperature) {
        handle({"set", "temperature.main", std::to_string(temperature)});
        expected.push_back("TemperatureChangeSignal(1, " + std::to_string(temperature) + ".0)");
    }
    EXPECT_EQ(client_->wait_for(5), expected) << "the last to come is the last that was set";
}

TEST_F(ControllerFaults, AMalformedSignalOfNumbersHoldsAString) {
    EXPECT_EQ(client_->call("RegisterForTemperatureSignal", "idb", 3, 60.0, 1), "(1, false)");
    fail({"TemperatureSignal", "--malformed", "--times", "1"});
    handle({"set", "temperature.main", "61"});
    EXPECT_THAT(client_->wait_for(1), ElementsAre("TemperatureSignal(\"malformed\")"));
}

}  // namespace
}  // namespace test
