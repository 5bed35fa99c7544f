// Blocks whose services crash two hundred times.
#include "tests/integration/blocks/monitor_scene.hpp"
#include "tests/integration/blocks/power_consumer_scene.hpp"
#include "tests/integration/blocks/power_monitor_scene.hpp"
#include "tests/integration/blocks/video_scene.hpp"

namespace test {
namespace {

constexpr int crashes = 200;

/// A scene, some of whose test is done after each crash.
template <class Scene>
class Recovery : public Scene {
  protected:
    /// Calls `crash(even)` so often, in turn with true and false, until something fails.
    template <class Crash>
    void each_time(Crash&& crash) {
        for (int i = 0; i < crashes && !this->HasFatalFailure(); ++i) {
            SCOPED_TRACE(i);
            crash(i % 2 == 0);
        }
        this->close();
    }
};

using MonitorRecoveryTest = Recovery<MonitorScene>;

TEST_F(MonitorRecoveryTest, IsRegisteredAndRightAfterEachCrashOfAServiceThatCallsBringBack) {
    start_registered({.activation = true});
    each_time([this](bool even) {
        handle({"stop", "temperature"});
        wait_until_registered();
        set_temperature(even ? "61" : "36");
        wait_for_output(even ? "false" : "true");
    });
    EXPECT_THAT(events("log"), SizeIs(crashes));
    EXPECT_THAT(events("log"), Each(StartsWith(R"({"event":"log","level":4,"message":"Setting )")));
    EXPECT_THAT(events("output"), SizeIs(crashes + 1));
}

TEST_F(MonitorRecoveryTest, IsSilentThroughEachCrashOfAServiceThatCallsDoNotBringBack) {
    start_registered();
    handle({"stop", "temperature"});
    wait_for_log("Failed to read temperature signal result: ");
    handle({"start", "temperature"});
    each_time([this](bool even) {
        restart_service();
        set_temperature(even ? "61" : "36");
        wait_for_camera("\"event\":\"set\"");
    });
    EXPECT_THAT(
        events("log"),
        ElementsAre(log_event(2, "Failed to read temperature signal result: " + no_such_device)));
    EXPECT_THAT(events("output"), ElementsAre(verdict_event("true")));
    const Lines lines = traffic();
    const auto lost = std::ranges::find(lines, owner_change("service", ""));
    ASSERT_NE(lost, lines.end());
    EXPECT_EQ(std::count_if(
                  lost, lines.end(),
                  [](const std::string& line) { return line.starts_with("client calls service"); }),
              1)
        << "only the first loss is answered";
    EXPECT_EQ(std::count_if(lost, lines.end(),
                            [](const std::string& line) {
                                return line.find("NameOwnerChanged(") != std::string::npos;
                            }),
              2 * (crashes + 1));
}

using PowerConsumerRecoveryTest = Recovery<ConsumerScene>;

TEST_F(PowerConsumerRecoveryTest,
       IsRegisteredAndRightAfterEachCrashOfAControllerThatCallsBringBack) {
    start_granted({.activation = true});
    each_time([this](bool even) {
        handle({"stop", "power-consumer"});
        wait_for_replies("RequestPower");
        set_budget(even ? "2.5" : "3.5");
        wait_for_output(even ? "2.5" : "3.5");
    });
    EXPECT_EQ(count(register_call), crashes + 1);
    EXPECT_EQ(count(request_call), crashes + 1);
    EXPECT_THAT(events("log"), SizeIs(1 + 2 * crashes)) << "one line of its own, two a crash";
}

TEST_F(PowerConsumerRecoveryTest, IsSilentAfterEachCrashOfAControllerThatCallsDoNotBringBack) {
    start_granted();
    each_time([this](bool even) {
        handle({"stop", "power-consumer"});
        // The loss, and the refusals of both calls, each run the block.
        wait_for_output("4.5", 3);
        handle({"start", "power-consumer"});
        wait_for_log("Owner of 'com.tarlo.PowerControl.Consumer' changed from ''");
        set_budget(even ? "2.5" : "3.5");
        wait_for_camera("\"event\":\"set\"");
    });
    EXPECT_EQ(count(register_call), crashes + 1);
    EXPECT_EQ(count(request_call), crashes + 1);
    EXPECT_THAT(with("calls client: SetPower", traffic()), SizeIs(1))
        << "only the first controller ever knew the consumer";
}

using PowerMonitorRecoveryTest = Recovery<PowerMonitorScene>;

TEST_F(PowerMonitorRecoveryTest, IsRightAfterEachCrashOfAServiceThatAnyCallBringsBack) {
    start_settled({.activation = true});
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(20));
    const char* const name = "com.tarlo.PowerControl.Status";
    each_time([&](bool even) {
        handle({"stop", "power-status"});
        // The monitor asks nothing more, so somebody else has to.
        double power = 0.0;
        ASSERT_GE(sd_bus_get_property_trivial(other.get(), name, "/com/tarlo/PowerControl/Status",
                                              name, "PowerReceived", nullptr, 'd', &power),
                  0);
        set_power(even ? "3" : "30");
        wait_for_camera("\"member\":\"PropertiesChanged\"");
        wait_for_output(even ? "false" : "true");
    });
    EXPECT_THAT(events("log"), ElementsAre());
    EXPECT_THAT(events("output"), SizeIs(3 + crashes));
}

TEST_F(PowerMonitorRecoveryTest, HearsChangesAfterEachCrashAlsoWhereNoCallBringsTheServiceBack) {
    start_settled();
    each_time([this](bool even) {
        restart_service();
        set_power(even ? "3" : "30");
        wait_for_camera("\"member\":\"PropertiesChanged\"");
        wait_for_output(even ? "false" : "true");
    });
    EXPECT_EQ(count(get_call), 2) << "it asks for the value at the start only";
    EXPECT_THAT(events("output"), SizeIs(3 + crashes));
}

using ControlsRecoveryTest = Recovery<ControlsScene>;

TEST_F(ControlsRecoveryTest, ComeBackAfterEachCrash) {
    start();
    wait_for_replies("AddFeatures");
    each_time([this](bool even) {
        restart_service();
        wait_for_replies("AddFeatures");
        settle();
        handle({"press", even ? "activateWDR1" : "deactivateWDR1"});
    });
    EXPECT_THAT(events("log"), ElementsAre());
    EXPECT_EQ(count(adds().front()), crashes + 1);
    EXPECT_EQ(count(remove_call), crashes + 1);
}

using VideoReadyRecoveryTest = Recovery<VideoScene>;

TEST_F(VideoReadyRecoveryTest, SignalsAgainWhenThePictureIsTurnedAlsoAfterEachCrash) {
    start({.activation = true, .host_options = {"--control"}});
    wait_until_ready();
    wait_for_replies("SignalVideoReady");
    each_time([this](bool even) {
        handle({"stop", "video"});
        ASSERT_GE(call("com.tarlo.Fenwa.Host1", "Write", "sv", "video.rotation_vip1_in", "i",
                       even ? 90 : 180),
                  0);
        wait_for_replies("SignalVideoReady");
    });
    EXPECT_THAT(events("log"), ElementsAre());
    EXPECT_EQ(count(signal_call), crashes + 1);
}

}  // namespace
}  // namespace test
