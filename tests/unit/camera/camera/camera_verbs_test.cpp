#include <gmock/gmock.h>

#include "tests/unit/camera/camera_fixture.hpp"

namespace camera {
namespace {

class CameraVerbsTest : public CameraTest {
  protected:
    static FaultRule rule(const std::string& target, FaultEffect effect) {
        FaultRule rule;
        set_target(rule, target);
        rule.effect = effect;
        rule.error_name = "com.example.Busy";
        return rule;
    }
};

TEST_F(CameraVerbsTest, SetsAValueAndTellsIt) {
    int changed = 0;
    camera_.set_observers({nullptr, [&changed] { ++changed; }});
    camera_.set("temperature.main", "71.5");
    camera_.set("temperature.lens", "-1e2");
    EXPECT_EQ(camera_.value("temperature.main"), 71.5);
    EXPECT_EQ(camera_.value("temperature.lens"), -100.0);
    EXPECT_EQ(camera_.value("temperature.housing"), 21.5);
    EXPECT_EQ(changed, 2);
    EXPECT_EQ(told(), "temperature: sensor main is 71.5\ntemperature: sensor lens is -100.0\n");
}

TEST_F(CameraVerbsTest, TakesNanAndInfinityForTemperatures) {
    for (const std::string text : {"nan", "inf", "-inf"}) {
        camera_.set("temperature.main", text);
        EXPECT_EQ(camera_.value("temperature.main"), text);
    }
}

TEST_F(CameraVerbsTest, RefusesWhatIsNoTemperature) {
    for (const std::string text : {"", " 1", "1 ", "1,5", "warm", "0x10", "1e999", "36.5C"}) {
        EXPECT_EQ(refusal([&] { camera_.set("temperature.main", text); }),
                  "'" + text + "' is not a valid temperature: expected a number, nan, inf or -inf");
        EXPECT_EQ(refusal([&] { (void)camera_.check_value("temperature.main", text); }),
                  "'" + text + "' is not a valid temperature: expected a number, nan, inf or -inf");
    }
    EXPECT_EQ(camera_.value("temperature.main"), 36.5);
    EXPECT_EQ(told(), "");
}

TEST_F(CameraVerbsTest, QuotesALongNameOrValueInPart) {
    const std::string name(8 << 20, 'n');
    for (const std::string& text :
         {refusal([&] { camera_.set("temperature.main", name); }),
          refusal([&] { camera_.set(name, "1"); }), refusal([&] { camera_.start(name); }),
          refusal([&] { camera_.press(name); }), refusal([&] { camera_.clear_fault(name); })}) {
        EXPECT_LE(text.size(), longest_refusal + 3);
        EXPECT_NE(text.find("nnn…nnn"), std::string::npos) << text;
    }
}

TEST_F(CameraVerbsTest, RefusesUnknownValuesWithTheNearest) {
    EXPECT_EQ(refusal([&] { camera_.set("temperature.mian", "1"); }),
              "unknown sensor 'mian'; did you mean 'main'?");
    EXPECT_EQ(refusal([&] { camera_.set("temperature.x", "1"); }), "unknown sensor 'x'");
    EXPECT_EQ(refusal([&] { camera_.set("temprature.main", "1"); }),
              "unknown value 'temprature.main'; did you mean 'temperature.main'?");
    EXPECT_EQ(refusal([&] { camera_.set("temperature", "1"); }),
              "unknown value 'temperature'; did you mean 'temperature.main'?");
    EXPECT_EQ(refusal([&] { (void)camera_.value("temperature.x"); }),
              "unknown value 'temperature.x'");
}

TEST_F(CameraVerbsTest, RefusesUnknownServices) {
    const std::string sentence = "unknown service 'temperatur'; did you mean 'temperature'?";
    EXPECT_EQ(refusal([&] { camera_.start("temperatur"); }), sentence);
    EXPECT_EQ(refusal([&] { camera_.stop("temperatur"); }), sentence);
    EXPECT_EQ(refusal([&] { camera_.restart("temperatur"); }), sentence);
    EXPECT_EQ(refusal([&] { camera_.activate("temperatur"); }), sentence);
    EXPECT_EQ(refusal([&] { camera_.check_service("temperatur"); }), sentence);
    EXPECT_EQ(refusal([&] { camera_.check_service(""); }), "unknown service ''");
    EXPECT_EQ(refusal([&] { camera_.check_service("temperature"); }), "no refusal");
}

TEST_F(CameraVerbsTest, SetsListsAndClearsFaults) {
    camera_.fail(rule("GetTemperature", FaultEffect::silent));
    camera_.fail(rule("temperature.TemperatureSignal", FaultEffect::drop));
    EXPECT_EQ(camera_.show()["faults"].dump(),
              R"([{"member":"GetTemperature","what":"not sent"},)"
              R"({"member":"temperature.TemperatureSignal","what":"the service leaves the bus"}])");
    camera_.clear_fault("GetTemperature");
    camera_.clear_fault("GetTemperature");
    EXPECT_EQ(camera_.show()["faults"].size(), 1U);
    EXPECT_EQ(told(),
              "fault: GetTemperature, set: not sent\n"
              "fault: temperature.TemperatureSignal, set: the service leaves the bus\n"
              "fault: GetTemperature, cleared: the rule is removed\n");
}

TEST_F(CameraVerbsTest, RefusesFaultsOfMembersThatNobodyHas) {
    EXPECT_EQ(refusal([&] { camera_.fail(rule("GetTemperatur", FaultEffect::silent)); }),
              "unknown method, signal or property 'GetTemperatur'; did you mean "
              "'GetTemperature'?");
    EXPECT_EQ(refusal([&] { camera_.fail(rule("temperature.Show", FaultEffect::silent)); }),
              "unknown method, signal or property 'Show' of the service 'temperature'");
    EXPECT_EQ(refusal([&] { camera_.fail(rule("temperate.GetTemperature", FaultEffect::drop)); }),
              "unknown service 'temperate'; did you mean 'temperature'?");
    EXPECT_EQ(refusal([&] { camera_.clear_fault("GetTemperatur"); }),
              "unknown method, signal or property 'GetTemperatur'; did you mean "
              "'GetTemperature'?");
    EXPECT_EQ(camera_.show()["faults"].dump(), "[]");
}

TEST_F(CameraVerbsTest, ASignalIsNotAnsweredWithAnError) {
    EXPECT_EQ(refusal([&] { camera_.fail(rule("TemperatureSignal", FaultEffect::error)); }),
              "'TemperatureSignal' is a signal; 'error' needs a method or a property");
    EXPECT_EQ(refusal([&] { camera_.fail(rule("PropertiesChanged", FaultEffect::error)); }),
              "'PropertiesChanged' is a signal; 'error' needs a method or a property");
}

TEST_F(CameraVerbsTest, ACallByTheCameraIsAnsweredByOthers) {
    EXPECT_EQ(refusal([&] { camera_.fail(rule("SetPower", FaultEffect::error)); }),
              "'SetPower' is an outgoing call of the camera; 'error' needs a method or a property");
    EXPECT_EQ(refusal([&] { camera_.fail(rule("SetPower", FaultEffect::silent)); }), "no refusal");
}

TEST_F(CameraVerbsTest, APropertyMayGoWrongInEveryWay) {
    for (const FaultEffect effect :
         {FaultEffect::error, FaultEffect::malformed, FaultEffect::silent, FaultEffect::drop})
        EXPECT_EQ(refusal([&] { camera_.fail(rule("power-status.PowerReceived", effect)); }),
                  "no refusal");
}

TEST_F(CameraVerbsTest, TellsMethodsFromWhatElseThereIs) {
    EXPECT_NO_THROW(camera_.check_method("", "GetTemperature"));
    EXPECT_NO_THROW(camera_.check_method("power-status", "Get"));
    EXPECT_NO_THROW(camera_.check_method("power-status", "GetAll"));
    EXPECT_EQ(refusal([&] { camera_.check_method("temperature", "Get"); }),
              "unknown method, signal or property 'Get' of the service 'temperature'");
    EXPECT_EQ(refusal([&] { camera_.check_method("", "TemperatureSignal"); }),
              "'TemperatureSignal' is a signal, not a method");
    EXPECT_EQ(refusal([&] { camera_.check_method("", "PropertiesChanged"); }),
              "'PropertiesChanged' is a signal, not a method");
    EXPECT_EQ(refusal([&] { camera_.check_method("", "PowerReceived"); }),
              "'PowerReceived' is a property, not a method; a property is read with 'Get'");
    EXPECT_EQ(refusal([&] { camera_.check_method("power-consumer", "SetPower"); }),
              "'SetPower' is an outgoing call of the camera, not a method; expect the 'state' that "
              "it reports");
}

TEST_F(CameraVerbsTest, NobodyHasAddedAButton) {
    EXPECT_EQ(refusal([&] { camera_.press("ok"); }),
              "unknown button 'ok': no client has added buttons");
}

TEST_F(CameraVerbsTest, ShowsItsWholeStateWhileItIsDown) {
    const auto down = [](const std::string& name, const std::string& bus_name) {
        return R"({"name":")" + name + R"(","state":"down","unique_name":"","bus_names":[")" +
               bus_name + R"("],"activatable":false,"registrations":[]})";
    };
    EXPECT_EQ(common::json_line(camera_.show()),
              R"({"bus":"","services":[)" + down("temperature", "com.tarlo.TemperatureController") +
                  "," + down("power-consumer", "com.tarlo.PowerControl.Consumer") + "," +
                  down("power-status", "com.tarlo.PowerControl.Status") + "," +
                  down("controls", "com.tarlo.Onscreencontrols1") + "," +
                  down("overlay", "com.tarlo.PrioritizedTextOverlay") + "," +
                  down("video", "com.tarlo.VideoReady1") + "," +
                  down("init", "org.freedesktop.systemd1") +
                  R"(],"values":{"temperature.main":36.5,"temperature.lens":28.0,)"
                  R"("temperature.housing":21.5,"power.budget":20.0,"power.left":20.0,)"
                  R"("power.received":25.0,"wdr.0":"off","wdr.1":"off","overlay.text":"",)"
                  R"("video.0":0,"video.1":0,"unit":"enabled"},"faults":[]})");
}

}  // namespace
}  // namespace camera
