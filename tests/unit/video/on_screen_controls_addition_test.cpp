#include <cerrno>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;

/// The addition of a block whose channel is `channel`, or `n` when counted from 1.
std::string addition_of(const std::string& channel, const std::string& n) {
    const std::string url =
        "/tarlo-cgi/param.cgi?action=update&ImageSource.I" + channel + ".Sensor.WDR=";
    const auto button = [](const std::string& info, const std::string& name,
                           const std::string& nice_name, const std::string& request) {
        return R"({"info":")" + info + R"(","name":")" + name + R"(","niceName":")" + nice_name +
               R"(","requestPayload":"JSON","requestType":"GET","requestURL":")" + request +
               R"(","response":false,"user":["operator"]})";
    };
    return addition(R"({"featureGroups":[],"features":[)" +
                    button("Turn on WDR to make both dark and bright areas of the image visible "
                           "on channel " +
                               n,
                           "activateWDR" + n, "Turn on WDR " + n, url + "on") +
                    "," +
                    button("Turn off WDR on channel " + n, "deactivateWDR" + n, "Turn off WDR " + n,
                           url + "off") +
                    R"(],"name":"WDR)" + n + R"(","niceName":"WDR )" + n + R"("})");
}

TEST_F(OnScreenControlsTest, AddsTheButtonsOfItsChannel) {
    add();
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::call_slot_field(**controls));
    EXPECT_EQ(bus.last().userdata, &**controls);
    EXPECT_FALSE(controls->woken());
    EXPECT_EQ(run(), Journal{}) << "the request is under way";
}

TEST_F(OnScreenControlsTest, CountsChannelsFromOneInTextsAndFromZeroInRequests) {
    for (const auto& [channel, text, n] : {std::tuple{0, "0", "1"},
                                           {2, "2", "3"},
                                           {-1, "-1", "0"},
                                           {-7, "-7", "-6"},
                                           {2147483647, "2147483647", "2147483648"}}) {
        make_with({{"channel", channel}, {"wdr", true}});
        state() = ControlsState::FeaturesListed;
        EXPECT_EQ(run(), (Journal{addition_of(text, n)}));
        EXPECT_EQ(pending(), Feature("WDR" + std::string(n), "en-us"));
        controls.reset();
        (void)bus.take_journal();
    }
}

TEST_F(OnScreenControlsTest, RemembersWhatItHasAddedOnceThatIsAnswered) {
    add();
    EXPECT_EQ(pending(), Feature("WDR1", "en-us"));
    EXPECT_EQ(added(), Features{});
    answer(messages.reply(""));
    EXPECT_EQ(added(), (Features{{"WDR1", "en-us"}}));
    EXPECT_EQ(pending(), Feature());
    EXPECT_EQ(state(), ControlsState::Synchronized);
    EXPECT_TRUE(controls->woken());
    EXPECT_EQ(run(), Journal{});
    EXPECT_FALSE(controls->woken());
}

TEST_F(OnScreenControlsTest, AddsNothingWhenItFindsWhatItLooksFor) {
    make(true);
    reach_list();
    added() = {{"WDR7", "sv"}, {"WDR0", "en-us"}};
    EXPECT_EQ(run(), Journal{});
    EXPECT_EQ(state(), ControlsState::Synchronized);
    EXPECT_FALSE(controls->woken());
}

TEST_F(OnScreenControlsTest, LooksForBothTheIdAndTheLanguage) {
    make(true);
    reach_list();
    added() = {{"WDR0", "sv"}, {"WDR1", "en-us"}, {"WDR", "en-us"}, {"WDR0", "en-us "}};
    EXPECT_EQ(run(), (Journal{"release #3 ListAddedFeatures", first_addition}));
}

TEST_F(OnScreenControlsTest, DoesNotLookAtTheListWhenItAdds) {
    make(true);
    list();
    answer_list(2U, "WDR0", 1U, "en-us", "WDR1", 1U, "en-us");
    EXPECT_EQ(run(), (Journal{"release #3 ListAddedFeatures", first_addition}));
}

TEST_F(OnScreenControlsTest, AddsItsButtonsAgainWithEveryPassAndRemovesThemAsOften) {
    synchronize();
    for (int restarts = 1; restarts < 3; ++restarts) {
        restart_service();
        (void)run();
        answer_list(1U, "WDR1", 1U, "en-us");
        const std::string answered = bus.last().release_text;
        EXPECT_EQ(run(), (Journal{answered, first_addition}));
        answer(messages.reply(""));
    }
    EXPECT_EQ(added(), Features(3, {"WDR1", "en-us"}));
    (*controls)->stop();
    EXPECT_EQ(bus.take_journal(),
              (Journal{"release #1 match", "release #8 AddFeatures", last_removal("WDR1"),
                       last_removal("WDR1"), last_removal("WDR1")}));
}

TEST_F(OnScreenControlsTest, WaitsForAnOwnerChangeWhenTheAdditionCannotBeSent) {
    make(true);
    reach_list();
    pending() = {"earlier", "sv"};
    bus.answer_next({-EPERM});
    EXPECT_EQ(run(), (Journal{"release #3 ListAddedFeatures", first_addition}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to call method AddFeatures: Operation not permitted"}));
    EXPECT_EQ(state(), ControlsState::UpdatePending);
    EXPECT_EQ(pending(), Feature("earlier", "sv"));
    EXPECT_FALSE(call_held());
    EXPECT_FALSE(controls->woken());
    EXPECT_EQ(run(), Journal{});
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query}));
}

TEST_F(OnScreenControlsTest, TriesARefusedAdditionForEverHoldingOneSlot) {
    add();
    for (int again = 0; again < 50; ++again) {
        answer(messages.error("com.example.Error", "no"));
        EXPECT_EQ(log.take(), (Lines{"1 Failed to call method AddFeatures: no"}));
        EXPECT_EQ(state(), ControlsState::FeaturesListed);
        EXPECT_TRUE(controls->woken());
        const std::string answered = bus.last().release_text;
        EXPECT_EQ(run(), (Journal{answered, first_addition}));
    }
    EXPECT_EQ(pending(), Feature("WDR1", "en-us"));
    EXPECT_EQ(added(), Features{});
}

TEST_F(OnScreenControlsTest, HearsTheAnswersToTwoAdditionsButKnowsTheNameOfOne) {
    add();
    restart_service();
    EXPECT_EQ(run(), (Journal{list_query})) << "sending 5, with the addition still unanswered";
    answer_list(0U);
    EXPECT_EQ(run(), (Journal{first_addition}));
    deliver(bus.sending(4), messages.reply(""));
    EXPECT_EQ(added(), (Features{{"WDR1", "en-us"}}));
    EXPECT_EQ(bus.take_journal(), Journal{});
    deliver(bus.sending(6), messages.reply(""));
    EXPECT_EQ(added(), (Features{{"WDR1", "en-us"}, {"", ""}}));
    EXPECT_EQ(bus.take_journal(),
              (Journal{"release #4 AddFeatures", "release #5 ListAddedFeatures"}));
    (*controls)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match", "release #6 AddFeatures",
                                           last_removal("WDR1"), last_removal("", "")}));
}

}  // namespace
