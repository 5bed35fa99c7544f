#include <stdexcept>

#include "tests/unit/temperature/temperature_monitor_fixture.hpp"

namespace {

using namespace monitor_test;

using Step = StepCase<TemperatureMonitor>;

/// The registration of one of the limits.
Step registration_step(const char* name, std::size_t limit) {
    return {name, limit + 3, default_registrations.at(limit),
            "1 Failed to RegisterForTemperatureSignal: ", &blocks::LayoutProbe::call_slot_field};
}

const Step steps[] = {
    {"OwnerMatch", 1, owner_match,
     "1 Failed to add match for NameOwnerChanged: ", &blocks::LayoutProbe::owner_match_slot_field},
    {"SignalMatch", 2, signal_match,
     "2 Failed to add DBus signal callback: ", &blocks::LayoutProbe::signal_match_slot_field},
    registration_step("LowOn", 0),
    registration_step("HighOn", 1),
    registration_step("LowOff", 2),
    registration_step("HighOff", 3),
};

class TemperatureMonitorStepTest : public TemperatureMonitorTest,
                                   public testing::WithParamInterface<Step> {
  protected:
    void SetUp() override {
        reach(GetParam().number);
        (void)woken();
    }
};

TEST_P(TemperatureMonitorStepTest, IsTakenOnceOnTheConnectionOfThatMoment) {
    expect_taken_once(GetParam());
}

TEST_P(TemperatureMonitorStepTest, IsTakenAgainInTheNextRunWhenItCouldNotBeSent) {
    expect_taken_again(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Steps, TemperatureMonitorStepTest, testing::ValuesIn(steps),
                         case_name<Step>);

TEST_F(TemperatureMonitorTest, ToleratesRunsWithNothingToDo) {
    settle();
    for (int again = 0; again < 3; ++again)
        EXPECT_EQ(run(), Journal{});
    EXPECT_FALSE(woken());
}

// The answer may come on another thread before the call returns.
TEST_F(TemperatureMonitorTest, KnowsWhichLimitItRegistersBeforeItCalls) {
    reach(3);
    remark([this] { return LayoutProbe::registering_index(block()); });
    for (std::size_t limit = 0; limit < 4; ++limit) {
        EXPECT_EQ(run(),
                  (Journal{default_registrations.at(limit) + " | " + std::to_string(limit)}));
        EXPECT_EQ(deliver(bus.last(), messages.reply("ib", 9, 0)).size(), 2U);
    }
}

TEST_F(TemperatureMonitorTest, GivesUpARegistrationUnderWayForAnother) {
    make();
    const auto register_limit = [this](std::size_t limit) {
        return effects_of([&] { LayoutProbe::register_limit(block(), limit); });
    };
    EXPECT_EQ(register_limit(1), (Journal{default_registrations[1]}));
    EXPECT_EQ(register_limit(2),
              (Journal{"release #1 RegisterForTemperatureSignal", default_registrations[2]}));
    bus.answer_next({-ENOTCONN});
    EXPECT_EQ(register_limit(3).size(), 3U);
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(LayoutProbe::registering_index(block()), 3U);
}

TEST_F(TemperatureMonitorTest, KnowsNoFifthLimit) {
    make();
    try {
        LayoutProbe::register_limit(block(), 4);
        FAIL() << "registered a fifth limit";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "array::at: __n (which is 4) >= _Nm (which is 4)");
    }
}

}  // namespace
