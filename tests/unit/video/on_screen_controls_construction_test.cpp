#include <memory>

#include "tests/support/configuration_recorder.hpp"
#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;

TEST_F(OnScreenControlsTest, HasOneEventPortFiredOnceAndNoDataPorts) {
    controls.emplace(recorders.tools, "controls", Fenwa::BlockConfiguration{{"channel", 0}});
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(**controls), (Journal{"event_port"}));
    EXPECT_EQ((*controls)->get_inport_names(), Journal{});
    EXPECT_EQ((*controls)->get_outport_names(), Journal{});
    EXPECT_EQ((*controls)->get_name(), "controls");
    EXPECT_TRUE(controls->woken());
    EXPECT_FALSE(controls->woken());
}

TEST_F(OnScreenControlsTest, StartsWithNothingOnTheBus) {
    make(true);
    EXPECT_EQ(state(), ControlsState::Idle);
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(call_held());
    EXPECT_EQ(pending(), Feature());
    EXPECT_EQ(added(), Features{});
    EXPECT_EQ(listed(), Features{});
}

TEST_F(OnScreenControlsTest, ReadsTheRequiredChannelAndThenWdrWithADefault) {
    const auto recorder = std::make_shared<support::ConfigurationRecorder>();
    make_with(Fenwa::ConfigurationAccess::observed({{"channel", 3}, {"wdr", true}}, recorder));
    EXPECT_EQ(recorder->reads, (Journal{"int channel", "bool wdr or a default"}));
    EXPECT_EQ(
        Fenwa::ConfigurationAccess::entries(Fenwa::HostAccess::configuration(**controls)).size(),
        2U);
}

TEST_F(OnScreenControlsTest, NeedsAChannel) {
    try {
        controls.emplace(recorders.tools, "controls", Fenwa::BlockConfiguration{{"wdr", true}});
        FAIL() << "built without a channel";
    } catch (const Fenwa::ConfigurationError& error) {
        EXPECT_EQ(error.key(), "channel");
        EXPECT_TRUE(error.missing());
    }
}

TEST_F(OnScreenControlsTest, RefusesValuesOfAnotherType) {
    for (const Fenwa::BlockConfiguration& config : std::initializer_list<Fenwa::BlockConfiguration>{
             {{"channel", {"0"}}},
             {{"channel", 0.0}},
             {{"channel", std::int64_t{1} << 40}},
             {{"channel", 0}, {"wdr", 1}},
             {{"channel", 0}, {"wdr", {"true"}}},
         })
        EXPECT_THROW(controls.emplace(recorders.tools, "controls", config),
                     Fenwa::ConfigurationError);
}

TEST_F(OnScreenControlsTest, TakesTheButtonsAwayUnlessToldOtherwise) {
    make_with({{"channel", 0}});
    list();
    answer_list(1U, "WDR0", 1U, "en-us");
    EXPECT_EQ(run(), (Journal{"release #3 ListAddedFeatures", removal("WDR0")}));
}

TEST_F(OnScreenControlsTest, LooksForTheNameWithItsChannelCountedFromZero) {
    for (const auto& [channel, id] : {std::pair{0, "WDR0"},
                                      {2, "WDR2"},
                                      {-1, "WDR-1"},
                                      {2147483647, "WDR2147483647"},
                                      {-2147483647 - 1, "WDR-2147483648"}}) {
        make_with({{"channel", channel}});
        LayoutProbe::state(**controls) = ControlsState::FeaturesListed;
        listed() = {{id, "en-us"}};
        EXPECT_EQ(run(), (Journal{removal(id)}));
        controls.reset();
        EXPECT_EQ(bus.take_journal(), (Journal{bus.last().release_text}));
    }
}

}  // namespace
