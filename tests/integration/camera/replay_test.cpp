// Scenarios that answer and send in place of the services.
#include "camera/service/served_object.hpp"
#include "tests/integration/camera/consumer_client.hpp"
#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

class Replay : public ScenarioScene {
  protected:
    void begin(const std::string& text) {
        ScenarioScene::begin(text);
        client_ = std::make_unique<BusClient>(address());
    }

    std::unique_ptr<BusClient> client_;
};

TEST_F(Replay, AnswersCallsInPlaceOfTheService) {
    begin(R"([[steps]]
reply = {call = "GetTemperatureIdFromName", arguments = ["main"], values = [7], within = 20}
[[steps]]
reply = {call = "temperature.GetTemperature", arguments = [7, "main"], values = [nan], within = 20}
[[steps]]
reply = {call = "GetTemperature", error = "com.example.Error.Busy", message = "Later.", within = 20}
[[steps]]
reply = {call = "GetTemperature", types = "s", values = ["warm"], within = 20}
[[steps]]
at = 60
)");
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "s", "main"), "(7)");
    EXPECT_EQ(client_->call("GetTemperature", "is", 7, "main"), "(\"nan\")");
    EXPECT_EQ(client_->call("GetTemperature", "is", 3, "main"), "com.example.Error.Busy: Later.");
    EXPECT_EQ(client_->call("GetTemperature", "is", 3, "main"), "(\"warm\")");
    EXPECT_EQ(client_->call("GetTemperature", "is", 3, "main"), "(\"warm\")")
        << "the last one again";
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "s", "lens"), "(4)") << "by itself";
}

TEST_F(Replay, HoldsAnswersBackUntilItIsTheirTurn) {
    begin(R"([[steps]]
reply = {call = "GetTemperatureIdFromName", arguments = ["main"], values = [3], within = 20}
[[steps]]
reply = {call = "GetTemperatureIdFromName", arguments = ["lens"], values = [4], after = 0.3, within = 20}
[[steps]]
signal = {member = "TemperatureChangeSignal", arguments = [1, 58.0]}
[[steps]]
at = 60
)");
    client_->listen();
    client_->send("GetTemperatureIdFromName", "s", "lens");
    const auto begin = steady_clock::now();
    client_->send("GetTemperatureIdFromName", "s", "main");
    EXPECT_THAT(client_->wait_for(3), ElementsAre("GetTemperatureIdFromName answers (3)",
                                                  "GetTemperatureIdFromName answers (4)",
                                                  "TemperatureChangeSignal(1, 58.0)"));
    EXPECT_GE(steady_clock::now() - begin, milliseconds(250));
}

TEST_F(Replay, GoesOnWithoutACallThatDoesNotCome) {
    begin(R"([[steps]]
reply = {call = "GetTemperature", values = [1.0], within = 0.3}
say = "Nobody asked."
[[steps]]
at = 60
)");
    const auto line = camera().wait_for_text("missing_call");
    ASSERT_TRUE(line);
    EXPECT_THAT(*line, HasSubstr(R"("member":"GetTemperature","within":0.3)"));
    ASSERT_TRUE(camera().wait_for_text("Nobody asked."));
    EXPECT_EQ(client_->call("GetTemperature", "is", 3, "main"), "(1.0)") << "late, but right";
}

TEST_F(Replay, LeavesACallWithoutAnAnswerUntilItsServiceGoes) {
    begin(R"([[steps]]
reply = {call = "GetTemperature", silent = true, within = 20}
[[steps]]
after = 0.2
stop = "temperature"
[[steps]]
at = 60
)");
    EXPECT_THAT(client_->call("GetTemperature", "is", 3, "main"), HasSubstr("NoReply"));
}

TEST_F(Replay, SendsSignalsOfPropertiesAndCallsClients) {
    begin(R"([[steps]]
reply = {call = "power-status.Get", values = [{d = 12.5}], within = 20}
[[steps]]
expect = {call = "power-consumer.Register", within = 20}
[[steps]]
call = {member = "SetPower", to = "com.tarlo.Vipd.ch0", path = "/com/tarlo/Vipd/PowerConsumer", interface = "com.tarlo.Vipd.PowerConsumer", types = "d", arguments = [4.5]}
signal = {member = "PropertiesChanged", arguments = ["com.tarlo.PowerControl.Status", {PowerReceived = {d = 9.0}}, []]}
[[steps]]
at = 60
)");
    BusClient status(address(), camera::power_status);
    status.listen();
    BusClient properties(address(), {camera::power_status.name, camera::power_status.path,
                                     camera::properties_interface});
    EXPECT_EQ(properties.call("Get", "ss", "com.tarlo.PowerControl.Status", "PowerReceived"),
              "(12.5)");
    ConsumerClient consumer(address(), 0);
    EXPECT_EQ(consumer.register_consumer(), "()");
    ASSERT_TRUE(camera().wait_for_text("SetPower")) << camera().out();
    consumer.wait_for(1);
    EXPECT_EQ(consumer.heard().back(), "SetPower(4.5)");
    EXPECT_EQ(status.wait_for(1).back(),
              "PropertiesChanged(\"com.tarlo.PowerControl.Status\", {\"PowerReceived\":9.0}, [])");
}

TEST_F(Replay, FailsWhereAValueIsNotOfItsType) {
    const Ended ended = play(
        "[[steps]]\nsignal = {member = \"TemperatureSignal\", arguments = "
        "[\"x\"]}\n");
    EXPECT_EQ(ended.code, 1);
    EXPECT_EQ(plain(ended.err),
              "fenwa-camera: s.toml:1:1: \"x\" is not a value of the D-Bus type 'i'\n");
}

TEST_F(Replay, BeginsWithoutServicesThatAreDown) {
    begin(
        "down = [\"temperature\", \"video\"]\nactivatable = [\"temperature\"]\n"
        "[[steps]]\nafter = 60\n");
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "s", "main"), "(3)") << "activated";
    BusClient video(address(), {camera::video_ready.name, "/com/tarlo/VideoReady1/0",
                                camera::video_ready.interface});
    EXPECT_THAT(video.call("SignalVideoReady", "s", "vipd"), HasSubstr("ServiceUnknown"));
}

}  // namespace
}  // namespace test
