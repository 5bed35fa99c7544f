// Scenarios that wait for calls and values, to which the test helps.
#include "camera/service/properties.hpp"
#include "tests/integration/camera/consumer_client.hpp"
#include "tests/integration/camera/scenario_scene.hpp"
#include "tests/integration/camera/wdr_document.hpp"

namespace test {
namespace {

class Expectations : public ScenarioScene {
  protected:
    /// Starts a scenario and connects to its bus.
    void begin(const std::string& scenario) {
        ScenarioScene::begin(scenario);
        client_ = std::make_unique<BusClient>(address());
    }

    std::string id_of(const std::string& name) {
        return client_->call("GetTemperatureIdFromName", "s", name.c_str());
    }

    /// The sentence with which the scenario fails.
    std::string failure() {
        ended_ = end();
        EXPECT_EQ(ended_.code, 1);
        return plain(ended_.err);
    }

    std::unique_ptr<BusClient> client_;
    Ended ended_;
};

TEST_F(Expectations, AreMetByTheCallThatTheyName) {
    begin(R"([[steps]]
expect = {call = "GetTemperatureIdFromName", arguments = ["main"], within = 20.0}
say = "There it is."
[[steps]]
expect = {call = "temperature.RegisterForTemperatureSignal", arguments = [3, 60, true], within = 20}
[[steps]]
expect = {call = "GetTemperatureIdFromName", within = 20}
)");
    EXPECT_EQ(client_->call("GetTemperature", "is", 3, "main"), "(36.5)");
    EXPECT_EQ(id_of("lens"), "(4)");
    EXPECT_EQ(id_of("main"), "(3)");
    // Numbers compare by value.
    EXPECT_EQ(client_->call("RegisterForTemperatureSignal", "idb", 3, 60.0, 0), "(1, true)");
    EXPECT_EQ(client_->call("RegisterForTemperatureSignal", "idb", 3, 60.0, 1), "(2, false)");
    EXPECT_THAT(id_of("nobody"), HasSubstr("UnknownSensor")) << "a refused call is one as well";
    const Lines all = lines(end_well().out);
    EXPECT_THAT(with("\"met\":true", all), SizeIs(3));
    EXPECT_THAT(with("There it is.", all), SizeIs(1));
}

TEST_F(Expectations, ThatAreNotMetSayWhatCameInstead) {
    begin(R"([[steps]]
expect = {call = "GetTemperature", arguments = [3, "main"], within = 3.0}
)");
    EXPECT_EQ(id_of("main"), "(3)");
    EXPECT_EQ(client_->call("GetTemperature", "is", 4, "lens"), "(28.0)");
    EXPECT_EQ(failure(),
              "fenwa-camera: s.toml:1:1: expected a call of GetTemperature(3, \"main\") within 3.0 "
              "s; calls received: GetTemperatureIdFromName(\"main\"), GetTemperature(4, "
              "\"lens\")\n");
    EXPECT_THAT(with("\"expectation\"", lines(ended_.out)),
                ElementsAre(R"({"event":"expectation","step":1,"where":"s.toml:1:1","expected":)"
                            R"x("a call of GetTemperature(3, \"main\") within 3.0 s","met":false,)x"
                            R"x("calls":["GetTemperatureIdFromName(\"main\")",)x"
                            R"x("GetTemperature(4, \"lens\")"]})x"));
}

TEST_F(Expectations, ThatAreNotMetNameTheLastTenCallsOnly) {
    begin("[[steps]]\nexpect = {call = \"GetTemperature\", arguments = [], within = 4.0}\n");
    for (int i = 0; i < 12; ++i)
        EXPECT_THAT(id_of("s" + std::to_string(i)), HasSubstr("UnknownSensor"));
    const std::string text = failure();
    EXPECT_THAT(text, HasSubstr("expected a call of GetTemperature() within 4.0 s; the last 10 of "
                                "12 calls received: GetTemperatureIdFromName(\"s2\"), "));
    EXPECT_THAT(text, EndsWith("\"s11\")\n"));
    EXPECT_THAT(text, ::testing::Not(HasSubstr("\"s1\"")));
}

TEST_F(Expectations, CountCallsSinceTheStepBefore) {
    begin(R"([[steps]]
say = "first"
[[steps]]
after = 3.0
expect = {call = "GetTemperatureIdFromName", arguments = ["main"], within = 0.1}
[[steps]]
expect = {call = "GetTemperatureIdFromName", arguments = ["main"], within = 0.1}
[[steps]]
expect = {call = "GetTemperatureIdFromName", arguments = ["housing"], within = 0.1}
)");
    // All of these come before the second step begins; it takes the first two, the third step the
    // third.
    for (const char* name : {"lens", "main", "main", "lens"})
        (void)id_of(name);
    EXPECT_EQ(failure(),
              "fenwa-camera: s.toml:8:1: expected a call of GetTemperatureIdFromName(\"housing\") "
              "within 0.1 s; calls received: GetTemperatureIdFromName(\"lens\")\n");
}

TEST_F(Expectations, DoNotCountCallsFromBeforeAStepThatExpectsNothing) {
    begin(R"([[steps]]
after = 2.0
say = "The calls so far are forgotten now."
[[steps]]
expect = {call = "GetTemperatureIdFromName", within = 0.2}
)");
    EXPECT_EQ(id_of("main"), "(3)");
    EXPECT_THAT(failure(), EndsWith("; no calls received\n"));
}

using ValuesExpected = ScenarioScene;

TEST_F(ValuesExpected, OfSharesComeWithConsumersAndGo) {
    begin(R"([[steps]]
set = {power.budget = 6}
expect = {state = "power.share.vipd0", is = 4.5, within = 20}
[[steps]]
expect = {state = "power.share.vipd1", is = 1.5, within = 20}
[[steps]]
expect = {state = "power.left", is = 0}
set = {power.budget = 100}
[[steps]]
expect = {state = "power.share.vipd1", is = "none", within = 20}
)");
    ConsumerClient a(address(), 0);
    EXPECT_EQ(a.register_consumer(), "()");
    EXPECT_EQ(a.request(4.5), "()");
    {
        ConsumerClient b(address(), 1);
        EXPECT_EQ(b.register_consumer(), "()");
        EXPECT_EQ(b.request(8.0), "()");
        b.wait_for(2);
        EXPECT_EQ(b.heard().back(), "SetPower(8.0)");
    }
    EXPECT_THAT(with("\"met\":true", lines(end_well().out)), SizeIs(4));
}

TEST_F(ValuesExpected, ArePropertiesThatClientsRead) {
    begin(R"([[steps]]
ramp = {power.received = 10, over = 0.2}
fail = {member = "PowerReceived", error = "com.example.Error.Busy", times = 1}
expect = {call = "power-status.Get", arguments = ["com.tarlo.PowerControl.Status", "PowerReceived"], within = 20}
)");
    BusClient client(address(), {camera::power_status.name, camera::power_status.path,
                                 camera::properties_interface});
    EXPECT_EQ(client.call("Get", "ss", "com.tarlo.PowerControl.Status", "PowerReceived"), busy);
    EXPECT_EQ(with("\"set\"", with("power.received", lines(end_well().out))).back(),
              R"({"event":"set","name":"power.received","value":10.0})");
}

TEST_F(ValuesExpected, OfTheScreenCome) {
    begin(R"([[steps]]
expect = {call = "AddFeatures", within = 20}
[[steps]]
press = "activateWDR1"
expect = {state = "wdr.0", is = "on"}
set = {wdr.1 = "on"}
[[steps]]
expect = {call = "controls.RemoveFeatures", within = 20}
)");
    BusClient client(address(), camera::onscreen_controls);
    client.send("AddFeatures", "sssa{sv}", "en-us", "English", wdr_document(1).c_str(), 0);
    EXPECT_EQ(client.wait_for(1).back(), "AddFeatures answers ()");
    ASSERT_TRUE(camera().wait_for_text(R"("name":"wdr.1","value":"on")"));
    EXPECT_EQ(client.call("RemoveFeatures", "ssa{sv}", "WDR1", "en-us", 0), "()");
    const Lines all = lines(end_well().out);
    EXPECT_THAT(with("\"met\":true", all), SizeIs(3));
    EXPECT_THAT(with("\"press\"", all),
                ElementsAre(R"({"event":"press","service":"controls","button":"activateWDR1",)"
                            R"("request":"GET /tarlo-cgi/param.cgi?action=update&)"
                            R"(ImageSource.I0.Sensor.WDR=on"})"));
}

TEST_F(ValuesExpected, OfTextsComeAndGo) {
    begin(R"([[steps]]
expect = {state = "overlay.text", is = "Too hot", within = 20}
[[steps]]
expect = {state = "overlay.text", is = "", within = 20}
)");
    BusClient client(address(), camera::text_overlay);
    EXPECT_EQ(client.call("Set", "su", "Too hot", 1U), "()");
    EXPECT_THAT(with("\"expired\"", lines(end_well().out)), SizeIs(1));
}

TEST_F(ValuesExpected, OfChannelsCome) {
    begin(R"([[steps]]
set = {unit = "masked"}
expect = {state = "video.1", is = 2, within = 20}
[[steps]]
expect = {state = "unit", is = "masked"}
)");
    BusClient init(address(), camera::init_manager);
    const std::string path = std::string(camera::video_ready.path) + "/1";
    BusClient client(address(),
                     {camera::video_ready.name, path.c_str(), camera::video_ready.interface});
    EXPECT_EQ(client.call("SignalVideoReady", "s", "vipd"), "()");
    EXPECT_EQ(init.call("GetUnitFileState", "s", "video-ready.service"), "(\"masked\")");
    EXPECT_EQ(client.call("SignalVideoReady", "s", "vipd"), "()");
    end_well();
}

}  // namespace
}  // namespace test
