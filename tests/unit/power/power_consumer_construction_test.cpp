#include <cmath>
#include <memory>
#include <utility>

#include "tests/support/configuration_recorder.hpp"
#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;

/// Builds consumers from configurations of its own.
class PowerConsumerConstructionTest : public PowerConsumerTest {
  protected:
    PowerConsumer& build(const Fenwa::BlockConfiguration& config) {
        consumer.emplace(recorders.tools, "consumer",
                         Fenwa::ConfigurationAccess::observed(config, recorder));
        EXPECT_EQ(log.take(), (Lines{announcement}));
        return **consumer;
    }

    std::shared_ptr<support::ConfigurationRecorder> recorder =
        std::make_shared<support::ConfigurationRecorder>();
};

TEST_F(PowerConsumerConstructionTest, HasATimerInputThatRunsIt) {
    build({{"power", 1.0}});
    EXPECT_EQ((*consumer)->get_inport_names(), (Journal{"timer_in"}));
    const Fenwa::InPortInternal* const timer = (*consumer)->get_inport("timer_in");
    EXPECT_NE(dynamic_cast<const Fenwa::InPort<Fenwa::datatype_timersource>*>(timer), nullptr);
    EXPECT_EQ(timer->datatype().path(), "/prefix/well-known.t/datatype_timersource");
    EXPECT_TRUE(timer->triggers());
}

TEST_F(PowerConsumerConstructionTest, HasOneOutputThatHoldsZero) {
    build({{"power", 1.0}});
    EXPECT_EQ((*consumer)->get_outport_names(), (Journal{"power_out"}));
    EXPECT_EQ(port().datatype().path(), "/prefix/well-known.f/float");
    EXPECT_EQ(port().value, 0.0F);
    EXPECT_FALSE(std::signbit(port().value));
    EXPECT_EQ(published(), std::nullopt);
}

TEST_F(PowerConsumerConstructionTest, HasAnEventPortThatItsConstructionDoesNotFire) {
    build({{"power", 1.0}});
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(**consumer), (Journal{"event_port"}));
    EXPECT_FALSE(consumer->woken());
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(PowerConsumerConstructionTest, ReadsItsChannelWithADefaultAndThenTheRequiredPower) {
    build({{"power", 1.0}, {"channel", 3}});
    EXPECT_EQ(recorder->reads, (Journal{"int channel or a default", "float power"}));
}

TEST_F(PowerConsumerConstructionTest, KeepsTheConfigurationAsItWasGiven) {
    build({{"power", 1.0}});
    EXPECT_EQ(
        Fenwa::ConfigurationAccess::entries(Fenwa::HostAccess::configuration(**consumer)).size(),
        1U);
}

TEST_F(PowerConsumerConstructionTest, NamesItselfAfterItsChannel) {
    for (const auto& [channel, number] : {std::pair{0, "0"},
                                          {3, "3"},
                                          {-1, "-1"},
                                          {2147483647, "2147483647"},
                                          {-2147483647 - 1, "-2147483648"}}) {
        build({{"power", 1.0}, {"channel", channel}});
        const std::string text = number;
        EXPECT_EQ(run(), (Journal{owner_match,
                                  controller_call("Register(s \"vipd" + text +
                                                  "\", b false, s \"com.tarlo.Vipd.ch" + text +
                                                  "\", s \"/com/tarlo/Vipd/PowerConsumer\", "
                                                  "s \"com.tarlo.Vipd.PowerConsumer\")")}));
        consumer.reset();
        (void)bus.take_journal();
    }
}

TEST_F(PowerConsumerConstructionTest, TakesChannelZeroWhenNoneIsGiven) {
    build({{"power", 12.5}});
    begin();
}

TEST_F(PowerConsumerConstructionTest, NeedsAPower) {
    try {
        build({{"channel", 3}});
        FAIL() << "built without a power";
    } catch (const Fenwa::ConfigurationError& error) {
        EXPECT_EQ(error.key(), "power");
        EXPECT_TRUE(error.missing());
    }
    EXPECT_EQ(log.take(), Lines{}) << "the object was announced before the configuration was read";
}

TEST_F(PowerConsumerConstructionTest, RefusesValuesOfAnotherType) {
    EXPECT_THROW(build({{"power", {"much"}}}), Fenwa::ConfigurationError);
    EXPECT_THROW(build({{"power", true}}), Fenwa::ConfigurationError);
    EXPECT_THROW(build({{"power", 1.0}, {"channel", 1.5}}), Fenwa::ConfigurationError);
    EXPECT_THROW(build({{"power", 1.0}, {"channel", {"1"}}}), Fenwa::ConfigurationError);
    EXPECT_THROW(build({{"power", 1.0}, {"channel", std::int64_t{1} << 40}}),
                 Fenwa::ConfigurationError);
}

TEST_F(PowerConsumerConstructionTest, StartsWithNothingOnTheBus) {
    build({{"power", 1.0}});
    EXPECT_EQ(LayoutProbe::bus(**consumer), nullptr);
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(LayoutProbe::registered(**consumer));
    EXPECT_FALSE(LayoutProbe::power_requested(**consumer));
    EXPECT_EQ(LayoutProbe::granted_power(**consumer), 0.0F);
    EXPECT_FALSE(std::signbit(LayoutProbe::granted_power(**consumer)));
}

}  // namespace
