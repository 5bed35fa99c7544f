#include <cerrno>
#include <stdexcept>

#include "fenwa/sdbus_error.hpp"
#include "tests/support/silent_bus_error.hpp"
#include "tests/unit/power/power_monitor_fixture.hpp"

namespace {

using namespace monitor_test;
using support::Settings;

TEST_F(PowerMonitorTest, HasABoolOutputAndKeepsItsConfiguration) {
    make(7.0);
    EXPECT_EQ(block().get_outport("power_ok_out")->datatype().path(), "/prefix/well-known.b/bool");
    EXPECT_EQ(support::settings_of(Fenwa::HostAccess::configuration(block())).size(), 1U);
}

TEST_F(PowerMonitorTest, NeedsARequestedPowerBeforeItAsksTheBus) {
    expect_refused({}, "requested_power", true);
    expect_refused({{"requested_power", {"much"}}}, "requested_power");
}

/// How the blocking read ends where it gives no power, and the effects of the construction from
/// then on.
struct ReadCase : support::NamedCase {
    std::function<void(support::Recorders&)> end_read;
    Journal effects;
};

class PowerMonitorReadTest : public PowerMonitorTest,
                             public testing::WithParamInterface<ReadCase> {};

TEST_P(PowerMonitorReadTest, LeavesThePowerAtZero) {
    GetParam().end_read(recorders);
    build("monitor", Fenwa::BlockConfiguration{{"requested_power", 5.0}});
    Journal expected{"output power_ok_out", "event event_port", first_read};
    expected.insert(expected.end(), GetParam().effects.begin(), GetParam().effects.end());
    EXPECT_EQ(take(), expected);
    EXPECT_EQ(received(), 0.0);
}

const std::string prefix = "1 Failed to get PowerReceived from com.tarlo.PowerControl.Status. ";
const std::string unreadable = "1 Failed to get PowerReceived from dbus reply.\n";
const std::string released = "release the reply to PowerReceived";

const ReadCase read_cases[] = {
    {{"BusError"},
     [](auto& with) { with.tools.throw_next(Fenwa::SDBusError("a.Error", "nobody", -EIO)); },
     {prefix + "a.Error: nobody", unreadable, fired}},
    {{"OtherException"},
     [](auto& with) { with.tools.throw_next(std::runtime_error("no luck")); },
     {prefix + "no luck", unreadable, fired}},
    {{"SilentException"},
     [](auto& with) { with.tools.throw_next(support::SilentBusError()); },
     {prefix, unreadable, fired}},
    {{"NoReply"}, [](auto& with) { with.tools.return_next(); }, {unreadable, fired}},
    {{"Text"},
     [](auto& with) { with.tools.reply_next(with.messages.reply("s", "much")); },
     {unreadable, fired, released}},
    {{"EmptyReply"},
     [](auto& with) { with.tools.reply_next(with.messages.reply("")); },
     {unreadable, fired, released}},
    {{"FailingRead"},
     [](auto& with) {
         with.tools.reply_next(with.messages.reply("d", 7.0));
         with.bus.make_up(support::MessageFunction::read, {-EPERM});
     },
     {unreadable, fired, released}},
    {{"ReadOfNothing"},
     [](auto& with) {
         with.tools.reply_next(with.messages.reply("d", 7.0));
         with.bus.make_up(support::MessageFunction::read, {0});
     },
     {fired, released}},
};

INSTANTIATE_TEST_SUITE_P(Endings, PowerMonitorReadTest, testing::ValuesIn(read_cases),
                         support::case_name<ReadCase>);

TEST_F(PowerMonitorTest, DoesNotCatchWhatIsNoException) {
    recorders.tools.throw_next(5);
    EXPECT_THROW(build("monitor", Fenwa::BlockConfiguration{{"requested_power", 5.0}}), int);
    EXPECT_EQ(bus.take_journal(), Journal{first_read});
}

/// The requested power, the received one, and whether that is enough.
struct PowerCase {
    double requested;
    double received;
    bool enough;
};

TEST_F(PowerMonitorTest, FindsThePowerEnoughFromEqualityOn) {
    const double least = std::numeric_limits<double>::denorm_min();
    for (const PowerCase& power : std::initializer_list<PowerCase>{
             {5.0, 5.0, true},
             {5.0, 4.999, false},
             {5.0, 5.001, true},
             {0.0, 0.0, true},
             {0.0, -0.0, true},
             {0.0, -least, false},
             {0.0, least, true},
             {1e-30, 0.0, false},
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
        make(power.received, power.requested);
        EXPECT_EQ(run(), (Journal{change_match, power.enough ? enough : too_little}))
            << power.requested << " of " << power.received;
    }
}

TEST_F(PowerMonitorTest, HandsTheOutcomeThatItHasThenToTheFramework) {
    const auto settings = [this] {
        return support::settings_of(block().setup({{"power_ok", 5}, {"more", true}}));
    };
    const auto settings_with = [](bool outcome) {
        return Settings{{"power_ok", outcome},
                        {"termination_cfg.inports", Journal{"power_monitor_in"}},
                        {"termination_cfg.types", Journal{"/prefix/well-known.b/bool"}},
                        {"termination_cfg.power_monitor_in_def", outcome}};
    };
    make(5.0);
    EXPECT_EQ(settings(), settings_with(true));
    watch(4.0);
    EXPECT_EQ(settings(), settings_with(false));
    EXPECT_EQ(change(6.0), taken);
    EXPECT_EQ(settings(), settings_with(true));
    EXPECT_EQ(take(), Journal{});
}

}  // namespace
