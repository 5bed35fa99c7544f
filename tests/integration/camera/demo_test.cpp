// The scenarios of the examples with the graphs of the examples, as they tell one to play them.
#include <gmock/gmock.h>

#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::Gt;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::SizeIs;

class Demo : public ScenarioScene {
  protected:
    /// The lines of the host, which writes JSON into the camera's text, by kind.
    [[nodiscard]] Lines host_lines(const std::string& kind) const {
        return with("{\"event\":\"" + kind + '"', host_);
    }

    void sort_lines(const std::string& out) {
        for (const std::string& line : lines(out))
            (line.starts_with('{') ? host_ : camera_).push_back(line);
    }

    /// The values that a block has published.
    [[nodiscard]] Lines values_of(const std::string& block) const {
        Lines values;
        for (const std::string& line : host_lines("output")) {
            const common::Json event = common::Json::parse(line);
            if (event["block"] == block)
                values.push_back(event["value"].dump());
        }
        return values;
    }
    /// The same without those that equal the one before.
    [[nodiscard]] Lines changes_of(const std::string& block) const {
        Lines values = values_of(block);
        values.erase(std::unique(values.begin(), values.end()), values.end());
        return values;
    }

    Lines host_;
    Lines camera_;
};

using TemperatureDemo = Demo;
using GuardAndBudgetDemo = Demo;
using WholeCameraDemo = Demo;

TEST_F(TemperatureDemo, TheReaderPublishesWhatTheScenarioDoes) {
    const std::string examples = FENWA_EXAMPLES;
    const Ended ended =
        run({"run", "--private-bus", "--scenario", examples + "/scenarios/temperature.toml", "--",
             FENWA_PROGRAM, "run", examples + "/graphs/temperature.toml", "--format", "json"});
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(left_behind(), IsEmpty());
    EXPECT_FALSE(files_left_behind());
    sort_lines(ended.out);

    std::vector<double> readings;
    for (const std::string& line : host_lines("output")) {
        const common::Json event = common::Json::parse(line);
        readings.push_back(event["value"]);
        EXPECT_EQ(line, R"({"event":"output","block":"reader","port":"temperature_out",)"
                        R"("type":"double","value":)" +
                            event["value"].dump() + '}');
    }
    // How many readings there are on the ramp is a matter of timing; where it begins and ends, and
    // that each is at least the reader's delta away from the one before, is not.
    ASSERT_GE(readings.size(), 8U) << ended.out;
    const std::vector<double> before(readings.begin(), readings.begin() + 3);
    const std::vector<double> ramp(readings.begin() + 2, readings.end() - 3);
    const std::vector<double> after(readings.end() - 3, readings.end());
    EXPECT_THAT(before, ElementsAre(36.5, 41.5, 47.0));
    for (std::size_t i = 1; i < ramp.size(); ++i)
        EXPECT_GE(ramp[i] - ramp[i - 1], 0.5) << "reading " << i << " of the ramp";
    EXPECT_THAT(ramp.back(), AllOf(Gt(51.0 - 0.5), Le(51.0)));
    EXPECT_THAT(after, ElementsAre(44.0, 38.5, 36.5));

    EXPECT_EQ(host_.front(), R"({"event":"ready"})");
    EXPECT_EQ(host_.back(), R"({"event":"exit","status":0})");
    EXPECT_THAT(host_lines("debug"), SizeIs(readings.size()));
    EXPECT_THAT(host_lines("log"), IsEmpty());
    EXPECT_THAT(with("scenario: ", camera_),
                ElementsAre("scenario: as expected: a call of GetTemperatureIdFromName(\"main\") "
                            "within 10.0 s",
                            "scenario: as expected: a call of RegisterForTemperatureChangeSignal "
                            "within 5.0 s",
                            "scenario: as expected: a call of RegisterForTemperatureChangeSignal "
                            "within 5.0 s",
                            "scenario: as expected: temperature.main to be 36.5 within 1.0 s"));
    EXPECT_EQ(camera_.back(), "the end, with exit code 0");
}

TEST_F(GuardAndBudgetDemo, ThreeHostsDoTheirPart) {
    const std::string examples = FENWA_EXAMPLES;
    const auto host = [&examples](const std::string& graph) {
        return Lines{"--",       FENWA_PROGRAM, "run", examples + "/graphs/" + graph + ".toml",
                     "--format", "json"};
    };
    Lines command{"run", "--private-bus", "--scenario",
                  examples + "/scenarios/guard-and-budget.toml"};
    for (const char* graph : {"temperature-guard", "power-channel-0", "power-channel-1"}) {
        const Lines words = host(graph);
        command.insert(command.end(), words.begin(), words.end());
    }
    const Ended ended = run(command);
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(left_behind(), IsEmpty());
    EXPECT_FALSE(files_left_behind());
    sort_lines(ended.out);

    EXPECT_THAT(values_of("reader"), ElementsAre("36.5", "55.0", "73.0", "65.0", "59.5"));
    EXPECT_THAT(values_of("guard"), ElementsAre("true", "false", "true"));
    EXPECT_THAT(values_of("housing"), ElementsAre("true"));
    EXPECT_THAT(values_of("supply"), ElementsAre("true", "true", "true", "false", "true"));
    // The answers of the controller, before and after its crash, each make a consumer publish too.
    EXPECT_THAT(changes_of("channel0"), ElementsAre("0.0", "12.0"));
    EXPECT_THAT(changes_of("channel1"), ElementsAre("0.0", "12.0", "4.0", "12.0"));
    EXPECT_THAT(host_lines("exit"), SizeIs(3));
    EXPECT_EQ(camera_.back(), "the end, with exit code 0");
}

TEST_F(WholeCameraDemo, EachBlockShowsItsPoint) {
    const std::string examples = FENWA_EXAMPLES;
    // The scenario runs `fenwa` by its name.
    const std::string programs = std::filesystem::path(FENWA_PROGRAM).parent_path().string();
    const auto camera = start(
        {"run", "--private-bus", "--scenario", examples + "/scenarios/camera.toml", "--",
         FENWA_PROGRAM, "run", "--control", examples + "/graphs/camera.toml", "--format", "json"},
        {{"PATH", programs + ':' + getenv("PATH")}});
    // It takes longer than a test waits for the end of a program.
    EXPECT_TRUE(camera->wait_for_text("All is well again."));
    EXPECT_TRUE(camera->wait_for_text("The temperature controller crashes."));
    const Ended ended = camera->wait();
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    EXPECT_THAT(left_behind(), IsEmpty());
    EXPECT_FALSE(files_left_behind());
    sort_lines(ended.out);

    EXPECT_THAT(values_of("reader"),
                ElementsAre("36.5", "58.0", "73.0", "65.0", "59.0", "75.0", "36.5"));
    EXPECT_THAT(values_of("guard"), ElementsAre("true", "false", "true", "false", "true"));
    EXPECT_THAT(changes_of("power"), ElementsAre("0.0", "12.0", "5.0", "12.0"));
    EXPECT_THAT(changes_of("supply"), ElementsAre("true", "false", "true"));
    const auto settings_of = [this](const std::string& block) {
        return with("\"block\":\"" + block + '"', host_lines("setup"));
    };
    EXPECT_THAT(settings_of("video"), ElementsAre(R"({"event":"setup","block":"video","settings":)"
                                                  R"({"no_video_at_startup":true}})"));
    EXPECT_THAT(settings_of("guard"), SizeIs(1));
    EXPECT_THAT(settings_of("supply"), SizeIs(1));
    const std::string verdict =
        R"({"event":"log","level":4,"message":"Setting temperature_ok_out = )";
    EXPECT_THAT(host_lines("log"),
                ElementsAre(R"({"event":"log","level":4,"message":"Adding dbus interface )"
                            R"('com.tarlo.Vipd.PowerConsumer' on )"
                            R"('/com/tarlo/Vipd/PowerConsumer"})",
                            verdict + R"(false"})", verdict + R"(true"})", verdict + R"(false"})",
                            verdict + R"(true"})"));

    EXPECT_THAT(with("calls SignalVideoReady", camera_), SizeIs(2));
    EXPECT_THAT(with("calls AddFeatures", camera_), SizeIs(2));
    EXPECT_THAT(with("calls RemoveFeatures", camera_), SizeIs(2));
    EXPECT_THAT(with("calls Set(", camera_), SizeIs(1));
    EXPECT_THAT(with("calls Unset", camera_), IsEmpty());
    EXPECT_THAT(with("calls Unregister", camera_), SizeIs(1));
    EXPECT_THAT(with("WDR of channel 0 is on", camera_), SizeIs(1));
    EXPECT_THAT(with("the text \"Good morning\" has had its time", camera_), SizeIs(1));
    EXPECT_EQ(camera_.back(), "the end, with exit code 0");
}

}  // namespace
}  // namespace test
