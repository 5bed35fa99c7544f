#include <utility>

#include "tests/unit/power/power_consumer_fixture.hpp"

namespace {

using namespace consumer_test;

TEST_F(PowerConsumerTest, HasATimerInputThatRunsItAndAFloatOutput) {
    make();
    const Fenwa::InPortInternal* const timer = block().get_inport("timer_in");
    EXPECT_NE(dynamic_cast<const Fenwa::InPort<Fenwa::datatype_timersource>*>(timer), nullptr);
    EXPECT_EQ(timer->datatype().path(), "/prefix/well-known.t/datatype_timersource");
    EXPECT_TRUE(timer->triggers());
    EXPECT_EQ(block().get_outport("power_out")->datatype().path(), "/prefix/well-known.f/float");
    EXPECT_EQ(support::settings_of(Fenwa::HostAccess::configuration(block())).size(), 1U);
}

TEST_F(PowerConsumerTest, IsCalledAfterItsChannel) {
    for (const auto& [channel, text] : {std::pair{0, "0"},
                                        {3, "3"},
                                        {-1, "-1"},
                                        {2147483647, "2147483647"},
                                        {-2147483647 - 1, "-2147483648"}}) {
        make({{"channel", channel}});
        EXPECT_EQ(run(), (Journal{owner_match, registration_of(text)}));
        answer();
        EXPECT_EQ(run_woken(), (Journal{nothing_granted, request_of(text)}));
        EXPECT_EQ(stop().back(), deregistration_of(text));
    }
}

TEST_F(PowerConsumerTest, NeedsAPowerAndTwoNumbersOfTheirTypes) {
    expect_refused({{"channel", 3}}, "power", true);
    expect_refused({{"power", {"much"}}}, "power");
    expect_refused({{"power", true}}, "power");
    expect_refused({{"power", 1.0}, {"channel", 1.5}}, "channel");
    expect_refused({{"power", 1.0}, {"channel", {"1"}}}, "channel");
    expect_refused({{"power", 1.0}, {"channel", std::int64_t{1} << 40}}, "channel");
}

}  // namespace
