// The scenarios of the examples with the graphs of the examples, as they tell one to play them.
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/integration/camera/scenario_scene.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

const std::string examples = FENWA_EXAMPLES;

class Demo : public ScenarioScene {
  protected:
    /// The lines of the host, which writes JSON into the camera's text, by kind.
    [[nodiscard]] Lines host_lines(const std::string& kind) const {
        return with("{\"event\":\"" + kind + '"', host_);
    }

    /// The command that plays a scenario with hosts of these graphs, and further options of these.
    static Lines demo(const std::string& scenario, const Lines& graphs, const Lines& options = {}) {
        Lines words{"run", "--private-bus", "--verbose", "--scenario",
                    examples + "/scenarios/" + scenario};
        for (const std::string& graph : graphs)
            words = words + Lines{"--", FENWA_PROGRAM, "run"} + options +
                    Lines{examples + "/graphs/" + graph, "--format", "json"};
        return words;
    }

    /// Sorts the lines of a demo, which must have ended well and left nothing.
    void take(const Ended& ended) {
        EXPECT_EQ(ended.code, 0) << ended.err;
        EXPECT_EQ(ended.err, "");
        expect_nothing_left();
        static const Pattern name("(^|\n)fenwa(-[0-9])? \\| ");
        for (const std::string& line : lines(name.replace(ended.out, "$1")))
            (line.starts_with('{') ? host_ : camera_).push_back(line);
        EXPECT_EQ(camera_.back(), "the end, with exit code 0");
    }

    /// The values that a block has published.
    [[nodiscard]] Lines values_of(const std::string& block) const {
        Lines values;
        for (const std::string& line : host_lines("output")) {
            const common::Json event = common::parse_json(line, "the text");
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
    take(run(demo("temperature.toml", {"temperature.toml"})));

    std::vector<double> readings;
    for (const std::string& line : host_lines("output")) {
        const common::Json event = common::parse_json(line, "the text");
        readings.push_back(event["value"]);
        EXPECT_EQ(line, R"({"event":"output","block":"reader","port":"temperature_out",)"
                        R"("type":"double","value":)" +
                            event["value"].dump() + '}');
    }
    // The number of readings on the ramp depends on timing. Its ends do not, and each reading is
    // at least the reader's delta away from the one before.
    ASSERT_GE(readings.size(), 8U);
    const std::vector<double> before(readings.begin(), readings.begin() + 3);
    const std::vector<double> ramp(readings.begin() + 2, readings.end() - 3);
    const std::vector<double> after(readings.end() - 3, readings.end());
    EXPECT_THAT(before, ElementsAre(36.5, 41.5, 47.0));
    for (std::size_t i = 1; i < ramp.size(); ++i)
        EXPECT_GE(ramp[i] - ramp[i - 1], 0.5) << "reading " << i << " of the ramp";
    EXPECT_THAT(ramp.back(), AllOf(::testing::Gt(51.0 - 0.5), ::testing::Le(51.0)));
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
}

TEST_F(GuardAndBudgetDemo, ThreeHostsDoTheirPart) {
    take(run(demo("guard-and-budget.toml",
                  {"temperature-guard.toml", "power-channel-0.toml", "power-channel-1.toml"})));

    EXPECT_THAT(values_of("reader"), ElementsAre("36.5", "55.0", "73.0", "65.0", "59.5"));
    EXPECT_THAT(values_of("guard"), ElementsAre("true", "false", "true"));
    EXPECT_THAT(values_of("housing"), ElementsAre("true"));
    EXPECT_THAT(values_of("supply"), ElementsAre("true", "true", "true", "false", "true"));
    // The answers of the controller, before and after its crash, each make a consumer publish too.
    EXPECT_THAT(changes_of("channel0"), ElementsAre("0.0", "12.0"));
    EXPECT_THAT(changes_of("channel1"), ElementsAre("0.0", "12.0", "4.0", "12.0"));
    EXPECT_THAT(host_lines("exit"), SizeIs(3));
}

TEST_F(WholeCameraDemo, EachBlockShowsItsPoint) {
    // The scenario runs `fenwa` by its name.
    const std::string programs = std::filesystem::path(FENWA_PROGRAM).parent_path().string();
    const auto camera = start(demo("camera.toml", {"camera.toml"}, {"--control"}),
                              {{"PATH", programs + ':' + getenv("PATH")}});
    // It takes longer than a test waits for the end of a program.
    EXPECT_TRUE(camera->wait_for_text("All is well again."));
    EXPECT_TRUE(camera->wait_for_text("The temperature controller crashes."));
    take(camera->wait());

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
        R"({"event":"log","block":"guard","level":4,"message":"Setting temperature_ok_out = )";
    EXPECT_THAT(
        host_lines("log"),
        ElementsAre(R"({"event":"log","block":"power","level":4,"message":"Adding dbus interface )"
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
}

TEST(DemoStory, HasTwentyLinesAtMost) {
    std::ifstream file(examples + "/scenarios/camera.toml");
    int sentences = 0;
    for (std::string line; std::getline(file, line);)
        sentences += line.starts_with("say = ") ? 1 : 0;
    EXPECT_GE(sentences, 10);
    EXPECT_LE(sentences + 2, 20) << "with the first line and the last";
}

}  // namespace
}  // namespace test
