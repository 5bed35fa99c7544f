#include <cerrno>
#include <memory>
#include <stdexcept>

#include "fenwa/sdbus_error.hpp"
#include "framework/shared/configuration_access.hpp"
#include "tests/support/configuration_recorder.hpp"
#include "tests/unit/power/power_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

const std::string unreadable = "1 Failed to get PowerReceived from dbus reply.\n";

/// An exception that has nothing to say.
class SilentError : public std::exception {
  public:
    [[nodiscard]] const char* what() const noexcept override { return nullptr; }
};

/// Builds monitors whose blocking read ends in other ways than with a double.
class PowerMonitorConstructionTest : public PowerMonitorTest {
  protected:
    void build(const Fenwa::BlockConfiguration& config = {{"requested_power", 5.0}}) {
        monitor.emplace(recorders.tools, "monitor", config);
        EXPECT_EQ(bus.take_journal(), (Journal{first_read}));
        EXPECT_TRUE(monitor->woken());
    }
};

TEST_F(PowerMonitorConstructionTest, HasOneOutputAndNoInput) {
    make(7.0);
    EXPECT_EQ((*monitor)->get_outport_names(), (Journal{"power_ok_out"}));
    EXPECT_EQ((*monitor)->get_inport_names(), Journal{});
    EXPECT_EQ(port().datatype().path(), "/prefix/well-known.b/bool");
    EXPECT_FALSE(port().value) << "only a run publishes";
    EXPECT_EQ(published(), std::nullopt);
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(**monitor), (Journal{"event_port"}));
}

TEST_F(PowerMonitorConstructionTest, IsWokenOnceByItsConstruction) {
    recorders.tools.reply_next(messages.reply("d", 7.0));
    build();
    EXPECT_FALSE(monitor->woken());
}

TEST_F(PowerMonitorConstructionTest, ReadsTheRequestedPowerAsARequiredFloat) {
    const auto recorder = std::make_shared<support::ConfigurationRecorder>();
    recorders.tools.reply_next(messages.reply("d", 7.0));
    build(Fenwa::ConfigurationAccess::observed({{"requested_power", 5.0}}, recorder));
    EXPECT_EQ(recorder->reads, (Journal{"float requested_power"}));
    EXPECT_EQ(
        Fenwa::ConfigurationAccess::entries(Fenwa::HostAccess::configuration(**monitor)).size(),
        1U);
}

TEST_F(PowerMonitorConstructionTest, NeedsARequestedPowerBeforeItAsksTheBus) {
    try {
        monitor.emplace(recorders.tools, "monitor", Fenwa::BlockConfiguration{});
        FAIL() << "built without a requested power";
    } catch (const Fenwa::ConfigurationError& error) {
        EXPECT_EQ(error.key(), "requested_power");
        EXPECT_TRUE(error.missing());
    }
    EXPECT_THROW(monitor.emplace(recorders.tools, "monitor",
                                 Fenwa::BlockConfiguration{{"requested_power", {"much"}}}),
                 Fenwa::ConfigurationError);
}

TEST_F(PowerMonitorConstructionTest, TakesTheValueThatItReads) {
    make(7.25);
    EXPECT_EQ(received(), 7.25);
    EXPECT_EQ(outcome(), true);
    EXPECT_EQ(bus.take_journal(), (Journal{change_match})) << "the match is installed all the same";
}

TEST_F(PowerMonitorConstructionTest, StillAsksForTheValueOnceTheMatchIsInstalled) {
    make(7.25);
    ask();
}

TEST_F(PowerMonitorConstructionTest, SaysWhyThePowerCouldNotBeRead) {
    recorders.tools.throw_next(Fenwa::SDBusError("org.freedesktop.DBus.Error.ServiceUnknown",
                                                 "nobody there", -EHOSTUNREACH));
    build();
    EXPECT_EQ(log.take(),
              (Lines{"1 Failed to get PowerReceived from com.tarlo.PowerControl.Status. "
                     "org.freedesktop.DBus.Error.ServiceUnknown: nobody there",
                     unreadable}));
    EXPECT_EQ(received(), 0.0);
}

TEST_F(PowerMonitorConstructionTest, SaysTheSameOfAnyOtherException) {
    recorders.tools.throw_next(std::runtime_error("no luck"));
    build();
    EXPECT_EQ(log.take(),
              (Lines{"1 Failed to get PowerReceived from com.tarlo.PowerControl.Status. no luck",
                     unreadable}));
}

TEST_F(PowerMonitorConstructionTest, EndsTheLineWithThePrefixWhenTheExceptionHasNoText) {
    recorders.tools.throw_next(SilentError());
    build();
    EXPECT_EQ(
        log.take(),
        (Lines{"1 Failed to get PowerReceived from com.tarlo.PowerControl.Status. ", unreadable}));
}

TEST_F(PowerMonitorConstructionTest, DoesNotCatchWhatIsNoException) {
    recorders.tools.throw_next(5);
    EXPECT_THROW(monitor.emplace(recorders.tools, "monitor",
                                 Fenwa::BlockConfiguration{{"requested_power", 5.0}}),
                 int);
    EXPECT_EQ(bus.take_journal(), (Journal{first_read}));
}

TEST_F(PowerMonitorConstructionTest, SaysThatThereIsNoReply) {
    recorders.tools.return_next();
    build();
    EXPECT_EQ(log.take(), (Lines{unreadable}));
    EXPECT_EQ(received(), 0.0);
}

TEST_F(PowerMonitorConstructionTest, SaysThatTheReplyCannotBeRead) {
    recorders.tools.reply_next(messages.reply("s", "much"));
    build();
    recorders.tools.reply_next(messages.reply(""));
    build();
    recorders.tools.reply_next(messages.reply("d", 7.0));
    bus.make_up(support::MessageFunction::read, {-EPERM});
    build();
    EXPECT_EQ(log.take(), (Lines{unreadable, unreadable, unreadable}));
    EXPECT_EQ(received(), 0.0);
}

TEST_F(PowerMonitorConstructionTest, TakesAReadOfNothingForZeroPower) {
    recorders.tools.reply_next(messages.reply("d", 7.0));
    bus.make_up(support::MessageFunction::read, {0});
    build();
    EXPECT_EQ(received(), 0.0);
}

TEST_F(PowerMonitorConstructionTest, StartsWithNothingOnTheBus) {
    make(7.0);
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(failures(), 0);
}

/// What is requested, what is received, and whether that is enough.
struct PowerCase {
    double requested;
    double received;
    bool enough;
};

TEST_F(PowerMonitorConstructionTest, FindsThePowerEnoughFromEqualityOn) {
    const double least = std::numeric_limits<double>::denorm_min();
    for (const PowerCase& power : std::initializer_list<PowerCase>{
             {5.0, 5.0, true},
             {5.0, 4.999, false},
             {5.0, 5.001, true},
             {0.0, 0.0, true},
             {0.0, -0.0, true},
             {0.0, -least, false},
             {0.0, least, true},
             {-1.0, 0.0, true},
             {5.0, not_a_number, false},
             {not_a_number, 5.0, false},
             {not_a_number, not_a_number, false},
             {5.0, infinity, true},
             {infinity, 5.0, false},
             {infinity, infinity, true},
             {-infinity, -infinity, true},
             {-infinity, not_a_number, false},
             {5.0, -infinity, false},
             // The requested power is a float: 36.6 is 36.599998474121094 then, 0.1 a little more.
             {36.6, 36.6, true},
             {36.6, 36.599999, true},
             {0.1, 0.1, false},
         }) {
        make_with({{"requested_power", power.requested}}, power.received);
        EXPECT_EQ(outcome(), power.enough) << power.requested << " of " << power.received;
        monitor.reset();
        (void)bus.take_journal();
    }
}

TEST_F(PowerMonitorConstructionTest, NeedsNoPowerToBeEnoughWhenNoneIsRequested) {
    for (const auto& [requested, enough] :
         {std::pair{0.0, true}, {-3.0, true}, {1e-30, false}, {5.0, false}}) {
        recorders.tools.throw_next(std::runtime_error("no luck"));
        build({{"requested_power", requested}});
        EXPECT_EQ(log.take().size(), 2U);
        EXPECT_EQ(outcome(), enough) << requested;
        monitor.reset();
        (void)bus.take_journal();
    }
}

/// The settings as texts, in their order.
Lines settings(PowerMonitor& monitor) {
    const auto text = [](const Fenwa::BlockConfiguration::Value& value) -> std::string {
        if (const auto* const flag = std::get_if<bool>(&value))
            return *flag ? "true" : "false";
        std::string list;
        for (const std::string& entry : std::get<std::vector<std::string>>(value))
            list += "[" + entry + "]";
        return list;
    };
    Lines lines;
    const Fenwa::BlockConfiguration config = monitor.setup({{"power_ok", 5}, {"more", true}});
    for (const auto& entry : Fenwa::ConfigurationAccess::entries(config))
        lines.push_back(entry.key() + " = " + text(entry.value()));
    return lines;
}

Lines settings_with(const std::string& outcome) {
    return {"power_ok = " + outcome, "termination_cfg.inports = [power_monitor_in]",
            "termination_cfg.types = [/prefix/well-known.b/bool]",
            "termination_cfg.power_monitor_in_def = " + outcome};
}

TEST_F(PowerMonitorConstructionTest, HandsItsOutcomeToTheFrameworkRightAway) {
    make(5.0);
    EXPECT_EQ(settings(**monitor), settings_with("true"));
    monitor.reset();
    make(4.0);
    EXPECT_EQ(settings(**monitor), settings_with("false"));
    EXPECT_EQ(bus.take_journal(), Journal{});
    EXPECT_FALSE(monitor->woken());
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(PowerMonitorConstructionTest, HandsOverTheOutcomeThatItHasThen) {
    make(5.0);
    watch(4.0);
    EXPECT_EQ(settings(**monitor), settings_with("false"));
    deliver(bus.sending(1), change(1, "PowerReceived", "d", 6.0));
    EXPECT_EQ(settings(**monitor), settings_with("true"));
}

}  // namespace
