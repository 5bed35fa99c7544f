// Buttons whose service or client goes, and calls that go wrong.
#include <gmock/gmock.h>

#include "tests/integration/camera/controls_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using ControlsFaults = ControlsScene;

TEST_F(ControlsFaults, FeaturesStayWhenTheClientThatAddedThemLeaves) {
    BusClient watcher(address(), camera::onscreen_controls);
    EXPECT_EQ(add(wdr_document(1)), "()");
    const std::string leaver = client_->unique_name();
    // The service hears of the loss before anybody else who asks behind it.
    const std::string rule = "type='signal',member='NameOwnerChanged',arg0='" + leaver + "'";
    bool gone = false;
    sd_bus_slot* slot = nullptr;
    common::check(sd_bus_add_match(
                      watcher.bus(), &slot, rule.c_str(),
                      [](sd_bus_message*, void* userdata, sd_bus_error*) {
                          *static_cast<bool*>(userdata) = true;
                          return 0;
                      },
                      &gone),
                  "sd_bus_add_match");
    const common::SlotPtr match(slot);
    client_.reset();
    for (int i = 0; i < 200 && !gone; ++i) {
        while (common::check(sd_bus_process(watcher.bus(), nullptr), "sd_bus_process") > 0) {
        }
        if (!gone)
            common::check(sd_bus_wait(watcher.bus(), 100000), "sd_bus_wait");
    }
    ASSERT_TRUE(gone);
    EXPECT_EQ(watcher.call("ListAddedFeatures", "a{sv}", 0), R"(([["WDR1",["en-us"]]]))");
    handle({"press", "activateWDR1"});
    EXPECT_EQ(value("wdr.0"), "on");
}

TEST_F(ControlsFaults, ARestartForgetsFeaturesAndKeepsTheParameter) {
    client_->listen();
    EXPECT_EQ(add(wdr_document(1)), "()");
    handle({"press", "activateWDR1"});
    handle({"restart", "controls"});
    EXPECT_EQ(list(), "([])");
    EXPECT_EQ(value("wdr.0"), "on");
    EXPECT_EQ(client_->wait_for(2).size(), 2U) << "the owner went and another came";
    EXPECT_EQ(add(wdr_document(1)), "()");
    EXPECT_EQ(remove("WDR1"), "()");
    EXPECT_THAT(remove("WDR1"), HasSubstr("UnknownFeature"));
}

TEST_F(ControlsFaults, WhileTheServiceIsDownThereIsNothingToPress) {
    EXPECT_EQ(add(wdr_document(1)), "()");
    handle({"stop", "controls"});
    EXPECT_THAT(refusal_of("activateWDR1"), HasSubstr("nobody has added buttons"));
    handle({"set", "wdr.1", "on"});
    EXPECT_EQ(value("wdr.1"), "on") << "the parameter is the camera's";
    EXPECT_EQ(list(), "([])") << "a call brings it up";
    EXPECT_EQ(service("controls")["state"], "up");
}

TEST_F(ControlsFaults, ACallMayGoWrong) {
    handle({"fail", "AddFeatures", "--error", "com.example.Error.Busy", "--times", "1"});
    EXPECT_EQ(add(wdr_document(1)), "com.example.Error.Busy: A fault rule answers this call.");
    EXPECT_EQ(list(), "([])") << "the call was not served";
    EXPECT_EQ(add(wdr_document(1)), "()");
    handle({"fail", "controls.ListAddedFeatures", "--malformed", "--times", "1"});
    EXPECT_EQ(list(), "(\"malformed\")");
    handle({"fail", "RemoveFeatures", "--delay", "1000", "--times", "1"});
    client_->send("RemoveFeatures", "ssa{sv}", "WDR1", "en-us", 0);
    client_->send("ListAddedFeatures", "a{sv}", 0);
    EXPECT_THAT(client_->wait_for(2),
                ElementsAre("ListAddedFeatures answers ([])", "RemoveFeatures answers ()"));
    handle({"fail", "AddFeatures", "--drop", "--times", "1"});
    EXPECT_THAT(add(wdr_document(1)), StartsWith("org.freedesktop.DBus.Error.NoReply: "));
    EXPECT_EQ(list(), "([])");
}

TEST_F(ControlsFaults, ARemovalWithoutAReplyIsServedInSilence) {
    EXPECT_EQ(add(wdr_document(1)), "()");
    for (int i = 0; i < 2; ++i) {
        const common::MessagePtr removal =
            client_->new_call("RemoveFeatures", "ssa{sv}", "WDR1", "en-us", 0);
        common::check(sd_bus_message_set_expect_reply(removal.get(), 0), "expect no reply");
        common::check(sd_bus_send(client_->bus(), removal.get(), nullptr), "send");
    }
    EXPECT_EQ(list(), "([])");
    close();
    EXPECT_EQ(with("\"call\"", with("RemoveFeatures", told())).size(), 2U);
    EXPECT_EQ(with("\"reply\"", with("RemoveFeatures", told())), Lines{});
}

}  // namespace
}  // namespace test
