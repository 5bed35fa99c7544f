// Values that are set, seen and refused by name. Each answer to an order is in the integration
// tests.
#include <nlohmann/json.hpp>

#include "tests/unit/camera/camera_fixture.hpp"

namespace camera {
namespace {

using Values = CameraTest;

TEST_F(Values, AreSetAndToldToWhoeverObserves) {
    int changed = 0;
    camera_.set_observers({nullptr, [&changed] { ++changed; }});
    camera_.set("temperature.lens", "-1e2");
    EXPECT_EQ(camera_.value("temperature.lens"), -100.0);
    EXPECT_EQ(camera_.value("temperature.housing"), 21.5);
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(told(), "temperature: sensor lens is -100.0\n");
}

TEST_F(Values, MayBeAnyNumberOrText) {
    const std::vector<std::pair<std::string, std::string>> taken = {{"temperature.main", "nan"},
                                                                    {"temperature.main", "inf"},
                                                                    {"temperature.main", "-inf"},
                                                                    {"power.received", "nan"},
                                                                    {"power.received", "inf"},
                                                                    {"power.received", "-inf"},
                                                                    {"wdr.1", "on"},
                                                                    {"wdr.1", "off"},
                                                                    {"unit", "MASKED"},
                                                                    {"unit", "masked "},
                                                                    {"unit", ""}};
    for (const auto& [name, text] : taken) {
        camera_.set(name, text);
        EXPECT_EQ(camera_.value(name), text) << name;
    }
    EXPECT_EQ(camera_.value("wdr.0"), "off");
    camera_.set("power.budget", "0");
    EXPECT_EQ(camera_.value("power.left"), 0.0);
}

TEST_F(Values, ThatAreOnlySeenAreReadAsTheyWouldBeShown) {
    EXPECT_EQ(camera_.value("power.share.vipd0"), "none");
    EXPECT_EQ(camera_.check_state("power.share.vipd0", "none"), "none");
    EXPECT_EQ(camera_.check_state("power.left", "1"), 1.0);
    EXPECT_EQ(camera_.check_state("overlay.text", "Hot"), "Hot");
    EXPECT_EQ(camera_.check_state("video.1", "3"), 3);
    EXPECT_EQ(refusal([&] { (void)camera_.check_state("power.left", "none"); }),
              "'none' is not a valid power: expected a finite number of at least 0");
    for (const std::string text : {"-1", "1.0", "", "often"})
        EXPECT_EQ(refusal([&] { (void)camera_.check_state("video.1", text); }),
                  "'" + text + "' is not a valid count: expected an integer of at least 0");
}

TEST_F(Values, AreQuotedInPartWhereTheyAreLong) {
    const std::string name(8 << 20, 'n');
    for (const std::string& text :
         {refusal([&] { camera_.set("temperature.main", name); }),
          refusal([&] { camera_.set(name, "1"); }), refusal([&] { camera_.start(name); }),
          refusal([&] { camera_.press(name); }), refusal([&] { camera_.clear_fault(name); })}) {
        EXPECT_LE(text.size(), common::max_error_text + 3);
        EXPECT_NE(text.find("nnn…nnn"), std::string::npos) << text;
    }
}

struct Refused {
    std::string name, text;
    std::string sentence;  ///< after the text in quotes, where it begins with a space
};
void PrintTo(const Refused& refused, std::ostream* out) {
    *out << refused.name << " = " << refused.text;
}

class RefusedValues : public CameraTest, public ::testing::WithParamInterface<Refused> {};

TEST_P(RefusedValues, ChangeNothing) {
    const Refused& value = GetParam();
    const std::string sentence =
        (value.sentence.starts_with(' ') ? "'" + value.text + "'" : "") + value.sentence;
    const common::Json before = camera_.show();
    EXPECT_EQ(refusal([&] { camera_.set(value.name, value.text); }), sentence);
    EXPECT_EQ(refusal([&] { (void)camera_.check_value(value.name, value.text); }), sentence);
    EXPECT_EQ(camera_.show(), before);
    EXPECT_EQ(told(), "");
}

const std::string no_number = " is not a valid temperature: expected a number, nan, inf or -inf";
const std::string no_power = " is not a valid power: expected a finite number of at least 0";
const std::string no_wdr =
    " is not a valid value of 'ImageSource.I0.Sensor.WDR': expected on or off";

INSTANTIATE_TEST_SUITE_P(
    Each, RefusedValues,
    ::testing::Values(
        Refused{"temperature.main", "", no_number}, Refused{"temperature.main", " 1", no_number},
        Refused{"temperature.main", "1 ", no_number}, Refused{"temperature.main", "1,5", no_number},
        Refused{"temperature.main", "0x10", no_number},
        Refused{"temperature.main", "1e999", no_number},
        Refused{"temperature.main", "36.5C", no_number}, Refused{"power.budget", "-0.5", no_power},
        Refused{"power.budget", "inf", no_power}, Refused{"power.budget", "nan", no_power},
        Refused{"power.budget", "much", no_power}, Refused{"power.budget", "", no_power},
        Refused{"power.budget", "1 W", no_power},
        Refused{"power.received", "much",
                " is not a valid power: expected a number, nan, inf or -inf"},
        Refused{"wdr.0", "", no_wdr}, Refused{"wdr.0", "On", no_wdr},
        Refused{"wdr.0", "true", no_wdr}, Refused{"wdr.0", "1", no_wdr},
        Refused{"power.left", "1",
                "'power.left' cannot be set: it follows from the budget and the requests"},
        Refused{"power.share.vipd0", "1",
                "'power.share.vipd0' cannot be set: it follows from the budget and the requests"},
        Refused{"overlay.text", "Hot",
                "'overlay.text' cannot be set: it shows the text that clients set"},
        Refused{"video.1", "1", "'video.1' cannot be set: it counts calls of SignalVideoReady"},
        Refused{"unit", std::string("a\0b", 3), "the state of a unit must not contain a zero byte"},
        Refused{"temperature.x", "1", "unknown sensor 'x'"},
        Refused{"temperature", "1",
                "unknown value 'temperature'; did you mean 'temperature.main'?"},
        Refused{"wdr.2", "on", "unknown value 'wdr.2'; did you mean 'wdr.0'?"},
        Refused{"power.recieved", "1",
                "unknown value 'power.recieved'; did you mean 'power.received'?"},
        Refused{"power-consumer.budget", "1", "unknown value 'power-consumer.budget'"}));

}  // namespace
}  // namespace camera
