#include <gmock/gmock.h>

#include "tests/integration/blocks/monitor_scene.hpp"

namespace test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr int crashes = 200;

using MonitorRecoveryTest = MonitorScene;

TEST_F(MonitorRecoveryTest, IsRegisteredAndRightAfterEachCrashOfAServiceThatCallsBringBack) {
    open({.activation = true});
    start_registered_host();
    bool verdict = true;
    for (int crash = 0; crash < crashes && !HasFatalFailure(); ++crash) {
        SCOPED_TRACE(crash);
        camera({"stop", "temperature"});
        wait_for_replies("RegisterForTemperatureSignal", 4);
        verdict = !verdict;
        camera({"set", "temperature.main", verdict ? "36" : "61"});
        wait_for_output(verdict ? "true" : "false");
    }
    close();
    EXPECT_THAT(events("log"), SizeIs(crashes));
    EXPECT_THAT(events("log"), Each(StartsWith(R"({"event":"log","level":4,"message":"Setting )")));
    EXPECT_THAT(events("output"), SizeIs(crashes + 1));
}

TEST_F(MonitorRecoveryTest, IsSilentThroughEachCrashOfAServiceThatCallsDoNotBringBack) {
    open();
    start_registered_host();
    camera({"stop", "temperature"});
    wait_for_log("Failed to read temperature signal result: ");
    camera({"start", "temperature"});
    for (int crash = 1; crash < crashes && !HasFatalFailure(); ++crash) {
        SCOPED_TRACE(crash);
        camera({"stop", "temperature"});
        camera({"start", "temperature"});
        camera({"set", "temperature.main", crash % 2 == 0 ? "36" : "61"});
        wait_for_camera("\"event\":\"set\"");
    }
    close();
    EXPECT_THAT(events("log"), ElementsAre(log_event(2,
                                                     "Failed to read temperature signal result: "
                                                     "No such device or address")));
    EXPECT_THAT(events("output"), ElementsAre(verdict_event("true")));

    const Lines lines = traffic();
    const auto lost = std::ranges::find_if(
        lines, [](const std::string& line) { return line.ends_with(R"("service", ""))"); });
    ASSERT_NE(lost, lines.end());
    const auto by_client = [](const std::string& line) {
        return line.starts_with("client calls") && line.find("RemoveMatch") == std::string::npos;
    };
    EXPECT_EQ(std::count_if(lost, lines.end(), by_client), 1) << "only the first loss is answered";
    const auto owner_changes = [](const std::string& line) {
        return line.find("NameOwnerChanged(") != std::string::npos;
    };
    EXPECT_EQ(std::count_if(lost, lines.end(), owner_changes), 2 * crashes);
}

}  // namespace
}  // namespace test
