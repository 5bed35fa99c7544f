// Scenarios that wait for calls, which the test makes.
#include <gmock/gmock.h>

#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Expectations : public ScenarioScene {
  protected:
    /// Starts a scenario and connects to its bus.
    void begin(const std::string& scenario) {
        ScenarioScene::begin(scenario);
        client_ = std::make_unique<BusClient>(address_);
    }

    std::string id_of(const std::string& name) {
        return client_->call("GetTemperatureIdFromName", "s", name.c_str());
    }

    std::unique_ptr<BusClient> client_;
};

TEST_F(Expectations, AreMetByTheCallThatTheyName) {
    begin(R"([[steps]]
expect = {call = "GetTemperatureIdFromName", arguments = ["main"], within = 20.0}
say = "There it is."
)");
    EXPECT_EQ(client_->call("GetTemperature", "is", 3, "main"), "(36.5)");
    EXPECT_EQ(id_of("lens"), "(4)");
    EXPECT_EQ(id_of("main"), "(3)");
    const Ended ended = end();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(with("\"met\":true", lines(ended.out)).size(), 1U);
    EXPECT_EQ(with("There it is.", lines(ended.out)).size(), 1U);
}

TEST_F(Expectations, OfAServiceAndNumbersCompareByValue) {
    begin(R"([[steps]]
expect = {call = "temperature.RegisterForTemperatureSignal", arguments = [3, 60, true], within = 20}
)");
    EXPECT_EQ(client_->call("RegisterForTemperatureSignal", "idb", 3, 60.0, 0), "(1, true)");
    EXPECT_EQ(client_->call("RegisterForTemperatureSignal", "idb", 3, 60.0, 1), "(2, false)");
    EXPECT_EQ(end().code, 0);
}

TEST_F(Expectations, OfARefusedCallAreMetAsWell) {
    begin("[[steps]]\nexpect = {call = \"GetTemperatureIdFromName\", within = 20}\n");
    EXPECT_THAT(id_of("nobody"), HasSubstr("UnknownSensor"));
    EXPECT_EQ(end().code, 0);
}

TEST_F(Expectations, ThatAreNotMetSayWhatCameInstead) {
    begin(R"([[steps]]
expect = {call = "GetTemperature", arguments = [3, "main"], within = 3.0}
)");
    EXPECT_EQ(id_of("main"), "(3)");
    EXPECT_EQ(client_->call("GetTemperature", "is", 4, "lens"), "(28.0)");
    const Ended ended = end();
    EXPECT_EQ(ended.code, 1);
    EXPECT_EQ(plain(ended.err),
              "fenwa-camera: s.toml:1:1: expected a call of GetTemperature(3, \"main\") within 3.0 "
              "s; calls received: GetTemperatureIdFromName(\"main\"), GetTemperature(4, "
              "\"lens\")\n");
    EXPECT_THAT(with("\"expectation\"", lines(ended.out)),
                ElementsAre(R"({"event":"expectation","step":1,"where":"s.toml:1:1","expected":)"
                            R"x("a call of GetTemperature(3, \"main\") within 3.0 s","met":false,)x"
                            R"x("calls":["GetTemperatureIdFromName(\"main\")",)x"
                            R"x("GetTemperature(4, \"lens\")"]})x"));
}

TEST_F(Expectations, ThatAreNotMetNameTheLastTenCallsOnly) {
    begin("[[steps]]\nexpect = {call = \"GetTemperature\", within = 4.0}\n");
    for (int i = 0; i < 12; ++i)
        EXPECT_THAT(id_of("s" + std::to_string(i)), HasSubstr("UnknownSensor"));
    const Ended ended = end();
    EXPECT_EQ(ended.code, 1);
    EXPECT_THAT(
        ended.err,
        HasSubstr("; the last 10 of 12 calls received: GetTemperatureIdFromName(\"s2\"), "));
    EXPECT_THAT(ended.err, HasSubstr("\"s11\")\n"));
    EXPECT_THAT(ended.err, ::testing::Not(HasSubstr("\"s1\"")));
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
    const Ended ended = end();
    EXPECT_EQ(ended.code, 1);
    EXPECT_EQ(plain(ended.err),
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
    const Ended ended = end();
    EXPECT_EQ(ended.code, 1);
    EXPECT_THAT(ended.err, HasSubstr("; no calls received\n"));
}

}  // namespace
}  // namespace test
