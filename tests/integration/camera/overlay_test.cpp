// Texts on the video: set, renewed, unset, and gone by themselves.
#include <gmock/gmock.h>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const std::string error = "com.tarlo.PrioritizedTextOverlay.Error.";

class Overlay : public CameraScene {
  protected:
    void SetUp() override {
        open({.activation = true});
        client_ = std::make_unique<BusClient>(address(), camera::text_overlay);
    }

    std::string set(const char* text, std::uint32_t duration = 0) {
        return client_->call("Set", "su", text, duration);
    }
    std::string unset(const char* text) { return client_->call("Unset", "s", text); }
    [[nodiscard]] std::string shown() const { return value("overlay.text"); }

    std::unique_ptr<BusClient> client_;
};

TEST_F(Overlay, TheEarliestTextIsShownAndTheOthersWait) {
    EXPECT_EQ(shown(), "");
    EXPECT_EQ(set("Too hot"), "()");
    EXPECT_EQ(set("Too \"dark\"", 3600), "()");
    EXPECT_EQ(shown(), "Too hot");
    const std::string who = client_->unique_name();
    EXPECT_EQ(common::json_line(service("overlay")["registrations"]),
              R"([{"id":1,"client":")" + who +
                  R"(","what":"\"Too hot\" is shown, until it is unset","text":"Too hot",)"
                  R"("duration":0,"shown":true},{"id":2,"client":")" +
                  who +
                  R"(","what":"\"Too \\\"dark\\\"\" waits, set for 3600 seconds",)"
                  R"("text":"Too \"dark\"","duration":3600,"shown":false}])");
    EXPECT_EQ(unset("Too hot"), "()");
    EXPECT_EQ(shown(), "Too \"dark\"");
    EXPECT_THAT(order({"show"}).out, HasSubstr("\noverlay.text         Too \"dark\"\n"));
}

TEST_F(Overlay, OnlyATextThatIsSetIsUnset) {
    EXPECT_EQ(unset("Too hot"), error + "UnknownText: The text 'Too hot' is not set.");
    EXPECT_EQ(set("Too hot"), "()");
    EXPECT_EQ(unset("Too hot"), "()");
    EXPECT_EQ(unset("Too hot"), error + "UnknownText: The text 'Too hot' is not set.");
}

TEST_F(Overlay, ATextIsNeitherEmptyNorEndless) {
    const std::string sentence = error + "InvalidText: A text must have 1 to 1024 bytes, not ";
    EXPECT_EQ(set(""), sentence + "0.");
    EXPECT_EQ(set(std::string(1025, 'x').c_str()), sentence + "1025.");
    EXPECT_EQ(set(std::string(1024, 'x').c_str()), "()");
}

TEST_F(Overlay, ATextWithADurationGoesByItself) {
    EXPECT_EQ(set("first", 1), "()");
    EXPECT_EQ(set("second", 1), "()");
    EXPECT_EQ(set("stays"), "()");
    EXPECT_EQ(shown(), "first");
    ASSERT_TRUE(camera().wait_for_text(R"("service":"overlay","text":"second")"));
    EXPECT_EQ(shown(), "stays");
    close();
    EXPECT_EQ(with("\"expired\"", told()),
              (Lines{R"({"event":"expired","service":"overlay","text":"first"})",
                     R"({"event":"expired","service":"overlay","text":"second"})"}));
}

TEST_F(Overlay, SetAgainATextKeepsItsPlaceAndGetsTheNewDuration) {
    EXPECT_EQ(set("first", 3600), "()");
    EXPECT_EQ(set("second"), "()");
    EXPECT_EQ(set("first", 1), "()");
    EXPECT_EQ(shown(), "first");
    EXPECT_EQ(set("second", 3600), "()");
    ASSERT_TRUE(camera().wait_for_text(R"("service":"overlay","text":"first")"));
    EXPECT_EQ(shown(), "second");
}

TEST_F(Overlay, ATextThatWasUnsetDoesNotGoAgain) {
    EXPECT_EQ(set("gone", 1), "()");
    EXPECT_EQ(set("mark", 2), "()");
    EXPECT_EQ(unset("gone"), "()");
    EXPECT_EQ(set("gone"), "()");
    ASSERT_TRUE(camera().wait_for_text(R"("service":"overlay","text":"mark")"));
    EXPECT_EQ(shown(), "gone") << "the old duration is no longer its own";
}

TEST_F(Overlay, ANegativeDurationIsAVeryLongOne) {
    EXPECT_EQ(set("long", static_cast<std::uint32_t>(-1)), "()");
    EXPECT_EQ(shown(), "long");
    EXPECT_EQ(service("overlay")["registrations"][0]["duration"], UINT32_MAX);
}

TEST_F(Overlay, ARestartForgetsTheTexts) {
    EXPECT_EQ(set("short", 1), "()");
    EXPECT_EQ(set("long"), "()");
    handle({"restart", "overlay"});
    EXPECT_EQ(shown(), "");
    EXPECT_THAT(service("overlay")["registrations"], IsEmpty());
    EXPECT_EQ(set("mark", 2), "()");
    ASSERT_TRUE(camera().wait_for_text(R"("service":"overlay","text":"mark")"));
    close();
    EXPECT_EQ(with("\"expired\"", told()).size(), 1U) << "no end of a text from before";
}

TEST_F(Overlay, ACallBringsItUp) {
    EXPECT_EQ(set("gone"), "()");
    handle({"stop", "overlay"});
    EXPECT_EQ(shown(), "");
    EXPECT_EQ(set("back"), "()");
    EXPECT_EQ(shown(), "back");
}

TEST_F(Overlay, ACallMayGoWrong) {
    handle({"fail", "Set", "--error", "com.example.Error.Busy", "--times", "1"});
    EXPECT_EQ(set("Too hot"), "com.example.Error.Busy: A fault rule answers this call.");
    EXPECT_EQ(shown(), "");
    EXPECT_EQ(set("Too hot"), "()");
    handle({"fail", "overlay.Unset", "--silent", "--times", "1"});
    EXPECT_EQ(
        client_->call(client_->new_call("Unset", "s", "Too hot"), std::chrono::milliseconds(300)),
        "org.freedesktop.DBus.Error.Timeout: Connection timed out");
    EXPECT_EQ(shown(), "Too hot");
    handle({"fail", "Unset", "--drop", "--times", "1"});
    EXPECT_THAT(unset("Too hot"), StartsWith("org.freedesktop.DBus.Error.NoReply: "));
    EXPECT_EQ(unset("Too hot"), error + "UnknownText: The text 'Too hot' is not set.");
}

}  // namespace
}  // namespace test
