// Texts on the video: set, renewed, unset, and gone by themselves.
#include <nlohmann/json.hpp>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

const std::string unknown =
    "com.tarlo.PrioritizedTextOverlay.Error.UnknownText: The text 'Too hot' is not set.";

class Overlay : public ClientScene {
  protected:
    void SetUp() override { open_for(camera::text_overlay, {.activation = true}); }

    std::string set(const std::string& text, std::uint32_t duration = 0) {
        return call("Set", "su", text.c_str(), duration);
    }
    std::string unset(const char* text) { return call("Unset", "s", text); }
    [[nodiscard]] std::string shown() const { return value("overlay.text"); }
    /// Waits until the camera tells that this text has had its time.
    void wait_for_end_of(const std::string& text) {
        ASSERT_TRUE(camera().wait_for_text(R"("service":"overlay","text":")" + text + '"'));
    }
};

TEST_F(Overlay, TheEarliestTextIsShownAndTheOthersWait) {
    EXPECT_EQ(shown(), "");
    EXPECT_EQ(set("Too hot"), "()");
    EXPECT_EQ(set("Too\n\"dark\"", 3600), "()");
    EXPECT_EQ(shown(), "Too hot");
    const std::string client = R"(,"client":")" + client_->unique_name() + R"(","what":)";
    EXPECT_EQ(common::json_line(service("overlay")["registrations"]),
              R"([{"id":1)" + client +
                  R"("\"Too hot\" is shown, until it is unset","text":"Too hot",)"
                  R"("duration":0,"shown":true},{"id":2)" +
                  client +
                  R"("\"Too\\n\\\"dark\\\"\" waits, set for 3600 seconds",)"
                  R"("text":"Too\n\"dark\"","duration":3600,"shown":false}])");
    EXPECT_EQ(unset("Too hot"), "()");
    EXPECT_EQ(shown(), "Too\n\"dark\"");
    EXPECT_THAT(command({"show"}).out, HasSubstr("\noverlay.text         Too\\n\"dark\"\n"));
}

TEST_F(Overlay, OnlyATextThatIsSetIsUnset) {
    EXPECT_EQ(unset("Too hot"), unknown);
    EXPECT_EQ(set("Too hot"), "()");
    EXPECT_EQ(unset("Too hot"), "()");
    EXPECT_EQ(unset("Too hot"), unknown);
}

TEST_F(Overlay, ATextIsNeitherEmptyNorEndless) {
    const std::string sentence =
        "com.tarlo.PrioritizedTextOverlay.Error.InvalidText: A text must have 1 to 1024 bytes, "
        "not ";
    EXPECT_EQ(set(""), sentence + "0.");
    EXPECT_EQ(set(std::string(1025, 'x')), sentence + "1025.");
    EXPECT_EQ(set(std::string(1024, 'x')), "()");
}

TEST_F(Overlay, ATextWithADurationGoesByItself) {
    EXPECT_EQ(set("first", 1), "()");
    EXPECT_EQ(set("second", 1), "()");
    EXPECT_EQ(set("stays"), "()");
    EXPECT_EQ(shown(), "first");
    wait_for_end_of("second");
    EXPECT_EQ(shown(), "stays");
    close();
    EXPECT_EQ(told("expired"),
              (Lines{R"({"event":"expired","service":"overlay","text":"first"})",
                     R"({"event":"expired","service":"overlay","text":"second"})"}));
}

TEST_F(Overlay, SetAgainATextKeepsItsPlaceAndGetsTheNewDuration) {
    EXPECT_EQ(set("first", 3600), "()");
    EXPECT_EQ(set("second"), "()");
    EXPECT_EQ(set("first", 1), "()");
    EXPECT_EQ(shown(), "first");
    EXPECT_EQ(set("second", 3600), "()");
    wait_for_end_of("first");
    EXPECT_EQ(shown(), "second");
}

TEST_F(Overlay, ATextThatWasUnsetDoesNotGoAgain) {
    EXPECT_EQ(set("gone", 1), "()");
    EXPECT_EQ(set("mark", 2), "()");
    EXPECT_EQ(unset("gone"), "()");
    EXPECT_EQ(set("gone"), "()");
    wait_for_end_of("mark");
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
    wait_for_end_of("mark");
    handle({"stop", "overlay"});
    EXPECT_EQ(set("back"), "()") << "a call brings it up";
    EXPECT_EQ(shown(), "back");
    close();
    EXPECT_THAT(told("expired"), SizeIs(1)) << "no end of a text from before";
}

}  // namespace
}  // namespace test
