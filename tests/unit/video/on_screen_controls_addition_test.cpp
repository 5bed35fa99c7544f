#include <tuple>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;

TEST_F(OnScreenControlsTest, AsksForTheOwnerForTheListAndThenAddsItsButtons) {
    add();
    expect_handed_over(bus.sending(1), LayoutProbe::match_slot_field(block()), &block());
    for (const std::size_t call : {2, 3, 4})
        expect_handed_over(bus.sending(call), LayoutProbe::call_slot_field(block()), &block());
    EXPECT_EQ(run(), Journal{}) << "the request is under way";
    EXPECT_EQ(added(), Features{});
    EXPECT_EQ(pending(), Feature("WDR1", "en-us"));
    EXPECT_EQ(deliver(bus.last(), messages.reply("")), wake_up);
    EXPECT_EQ(added(), (Features{{"WDR1", "en-us"}}));
    EXPECT_EQ(pending(), Feature());
    EXPECT_EQ(run(), Journal{});
}

TEST_F(OnScreenControlsTest, TakesAResultOfZeroFromSdBusForSuccess) {
    bus.answer_next({0, 0, 0, 0});
    synchronize();
    EXPECT_TRUE(match_held());
    EXPECT_TRUE(call_pending());
}

TEST_F(OnScreenControlsTest, CountsChannelsFromZeroInRequestsAndFromOneInWhatItAdds) {
    for (const auto& [channel, text, n] : {std::tuple{0, "0", "1"},
                                           {2, "2", "3"},
                                           {-1, "-1", "0"},
                                           {-7, "-7", "-6"},
                                           {-2147483647 - 1, "-2147483648", "-2147483647"},
                                           {2147483647, "2147483647", "2147483648"}}) {
        make_with({{"channel", channel}, {"wdr", true}});
        state() = ControlsState::FeaturesListed;
        EXPECT_EQ(run(), Journal{addition_of(text, n)});
        EXPECT_EQ(pending(), Feature("WDR" + std::string(n), "en-us"));
        make_with({{"channel", channel}});
        state() = ControlsState::FeaturesListed;
        listed() = {{"WDR" + std::string(n), "en-us"}, {"WDR" + std::string(text), "en-us"}};
        EXPECT_EQ(run(), Journal{removal("WDR" + std::string(text))}) << "unless told otherwise";
    }
}

TEST_F(OnScreenControlsTest, AddsNothingOnlyWhenItHasAddedTheIdAndLanguageThatItLooksFor) {
    const Features others{{"WDR0", "sv"}, {"WDR1", "en-us"}, {"WDR", "en-us"}, {"WDR0", "en-us "}};
    const Features mine{{"WDR7", "sv"}, {"WDR0", "en-us"}};
    for (const auto& [earlier, calls, after] :
         {std::tuple{others, Journal{first_addition}, ControlsState::UpdatePending},
          {mine, Journal{}, ControlsState::Synchronized}}) {
        make(true);
        listed() = {{"WDR0", "en-us"}, {"WDR1", "en-us"}};  // does not count
        added() = earlier;
        state() = ControlsState::FeaturesListed;
        EXPECT_EQ(run(), calls);
        EXPECT_EQ(state(), after);
    }
}

TEST_F(OnScreenControlsTest, AddsItsButtonsAgainWithEveryPassAndRemovesThemAsOften) {
    synchronize();
    for (int restarts = 1; restarts < 3; ++restarts) {
        restart_service();
        (void)run();
        answer_list(1U, "WDR1", 1U, "en-us");
        const std::string answered = bus.last().release_text;
        EXPECT_EQ(run(), (Journal{answered, first_addition}));
        EXPECT_EQ(deliver(bus.last(), messages.reply("")), wake_up);
    }
    EXPECT_EQ(added(), Features(3, {"WDR1", "en-us"}));
    const std::string once = last_removal("WDR1");
    EXPECT_EQ(stop(), (Journal{"release #1 match", "release #8 AddFeatures", once, once, once}));
}

TEST_F(OnScreenControlsTest, RepeatsARefusedCallForEverHoldingOneSlot) {
    const auto refuse = [this](const std::string& line, const std::string& call,
                               const Journal& returned = {}) {
        for (int again = 0; again < 50; ++again) {
            Journal effects{"1 " + line + ": no", fired};
            effects.insert(effects.end(), returned.begin(), returned.end());
            EXPECT_EQ(deliver(bus.last(), messages.error("a.Error", "no")), effects);
            const std::string answered = bus.last().release_text;
            EXPECT_EQ(run(), (Journal{answered, call}));
        }
    };
    ask(true);
    refuse("Error when retrieving NameOwner", owner_query, {"returns 1"});
    EXPECT_EQ(deliver(bus.last(), messages.reply("s", ":1.5")).front(), fired);
    EXPECT_EQ(run().back(), list_query);
    refuse("Failed to call method ListAddedFeatures", list_query);
    answer_list(0U);
    EXPECT_EQ(run().back(), first_addition);
    refuse("Failed to call method AddFeatures", first_addition);
    EXPECT_EQ(added(), Features{});
}

TEST_F(OnScreenControlsTest, TakesTheAnswersToTwoAdditionsButKnowsTheNameOfOne) {
    add();
    restart_service();
    EXPECT_EQ(run(), Journal{list_query}) << "sending 5, with the addition still unanswered";
    answer_list(0U);
    EXPECT_EQ(run(), Journal{first_addition});
    EXPECT_EQ(deliver(bus.sending(4), messages.reply("")), wake_up);
    EXPECT_EQ(added(), (Features{{"WDR1", "en-us"}}));
    EXPECT_EQ(deliver(bus.sending(6), messages.reply("")),
              (Journal{"release #4 AddFeatures", "release #5 ListAddedFeatures", fired}));
    EXPECT_EQ(stop(), (Journal{"release #1 match", "release #6 AddFeatures", last_removal("WDR1"),
                               last_removal("", "")}));
}

}  // namespace
