#include <cerrno>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;

TEST_F(OnScreenControlsTest, NeedsAChannelAndTakesAFlag) {
    expect_refused({{"wdr", true}}, "channel", true);
    expect_refused({{"channel", {"0"}}}, "channel");
    expect_refused({{"channel", 0.0}}, "channel");
    expect_refused({{"channel", std::int64_t{1} << 40}}, "channel");
    expect_refused({{"channel", 0}, {"wdr", 1}}, "wdr");
    expect_refused({{"channel", 0}, {"wdr", {"true"}}}, "wdr");
    make_with({{"channel", 3}});
    EXPECT_EQ(support::settings_of(Fenwa::HostAccess::configuration(block())).size(), 1U);
    EXPECT_EQ(block().get_name(), "controls");
}

TEST_F(OnScreenControlsTest, GivesItsSlotsUpAndThenTakesItsButtonsAwayWhenStopped) {
    synchronize();
    EXPECT_EQ(change_owner(service_name, ""), wake_up) << "what was added is kept";
    remark([this] { return static_cast<int>(state()); });
    EXPECT_EQ(stop(), (Journal{"release #1 match | 4", "release #4 AddFeatures | 4",
                               last_removal("WDR1") + " | 10"}));
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, nullptr);
    EXPECT_EQ(bus.last().callback, nullptr);
    EXPECT_EQ(bus.last().userdata, nullptr);
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(call_pending());
}

TEST_F(OnScreenControlsTest, RemovesEverythingInItsOrderAlsoWhenSomethingCannotBeSent) {
    make(true);
    added() = {{"WDR1", "en-us"}, {"a\"b", "sv"}, {"", ""}};
    bus.answer_next({-EPERM, -ENOBUFS, 0});
    EXPECT_EQ(stop(), (Journal{last_removal("WDR1"),
                               "2 Failed to remove feature \"WDR1\": Operation not permitted",
                               last_removal("a\"b", "sv"),
                               "2 Failed to remove feature \"a\"b\": No buffer space available",
                               last_removal("", "")}));
    EXPECT_EQ(stop(),
              (Journal{last_removal("WDR1"), last_removal("a\"b", "sv"), last_removal("", "")}))
        << "what was added is not forgotten";
}

TEST_F(OnScreenControlsTest, GivesUpItsCallThenItsMatchAndThenOlderCallsWhenDestroyed) {
    synchronize();
    restart_service();
    EXPECT_EQ(run(), (Journal{"release #4 AddFeatures", list_query}));
    restart_service();
    EXPECT_EQ(run(), Journal{list_query});
    EXPECT_EQ(destroy(), (Journal{"release #6 ListAddedFeatures", "release #1 match",
                                  "release #5 ListAddedFeatures"}))
        << "only a stop removes the buttons";
}

TEST_F(OnScreenControlsTest, TakesTheReplyToAReplacedCallAsLongAsItLives) {
    add();
    for (int again = 0; again < 2; ++again) {
        restart_service();
        EXPECT_EQ(run(), Journal{list_query});
    }
    EXPECT_EQ(deliver(bus.sending(4), messages.reply("")), wake_up);
    EXPECT_EQ(added(), (Features{{"WDR1", "en-us"}}));
    EXPECT_EQ(deliver(bus.sending(5), messages.reply("a(sas)", 1U, "WDR1", 1U, "en-us")), wake_up);
    EXPECT_EQ(state(), ControlsState::FeaturesListed);
    EXPECT_EQ(deliver(bus.sending(6), messages.reply("a(sas)", 0U)),
              (Journal{"release #4 AddFeatures", "release #5 ListAddedFeatures", fired}))
        << "once every call has been answered";
    EXPECT_TRUE(call_pending());
}

TEST_F(OnScreenControlsTest, KeepsNothingOfACallThatCouldNotBeSent) {
    add();
    bus.answer_next({-ENOBUFS});
    restart_service();
    EXPECT_EQ(run().size(), 2U);
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(deliver(bus.sending(4), messages.reply("")),
              (Journal{"release #4 AddFeatures", fired}));
}

TEST_F(OnScreenControlsTest, WorksOnAfterAStopWhenASignalOfItsServiceWasBeingDispatched) {
    add();
    EXPECT_EQ(stop(), (Journal{"release #1 match", "release #4 AddFeatures"}))
        << "the addition was never answered";
    restart_service();
    EXPECT_EQ(run(), Journal{list_query});
    answer_list(0U);
    EXPECT_EQ(run(), (Journal{"release #5 ListAddedFeatures", first_addition}));
    EXPECT_EQ(destroy(), Journal{"release #6 AddFeatures"});
}

TEST_F(OnScreenControlsTest, ReadsAnOwnerChangeUnlessTheResultIsNegative) {
    ask(true);
    bus.change_results(support::MessageFunction::read, {-EPERM, 0});
    EXPECT_EQ(change_owner(service_name, ":1.6"),
              (Journal{"2 NameOwnerChanged failed to parse message: Operation not permitted",
                       "returns -1"}));
    EXPECT_EQ(state(), ControlsState::QueryingOwner);
    restart_service();
}

TEST_F(OnScreenControlsTest, TakesTheConnectionAnewAtEachUse) {
    make(true);
    const auto use_next = [this] {
        recorders.tools.use_bus(bus.count() % 2 == 0 ? other_bus() : messages.bus());
    };
    const auto replies = {messages.reply("s", ":1.5"), messages.reply("a(sas)", 0U),
                          messages.reply("")};
    use_next();
    EXPECT_EQ(run(), Journal{owner_match});
    EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
    for (const support::Message& reply : replies) {
        use_next();
        (void)run();
        EXPECT_EQ(deliver(bus.last(), reply).front(), fired);
    }
    use_next();
    EXPECT_EQ(stop().size(), 3U);
    ASSERT_EQ(bus.count(), 5U);
    for (std::size_t sending = 1; sending <= 5; ++sending)
        EXPECT_EQ(bus.sending(sending).bus, sending % 2 == 0 ? messages.bus() : other_bus());
}

/// Controls that keep a match, which was refused while another block has an equal one, and a call,
/// which a newer one has replaced.
class KeepingControlsTest : public OnScreenControlsTest {
  protected:
    KeepingControlsTest()
        : other_(recorders.tools, "other", Fenwa::BlockConfiguration{{"channel", 1}}) {
        EXPECT_TRUE(other_->run());
        EXPECT_EQ(install(bus.last(), messages.reply("")).front(), owner_match);
        make(true);
        EXPECT_EQ(run(), Journal{owner_match});
        EXPECT_EQ(install(bus.last(), messages.error("a.Error", "no")).back(), fired);
        EXPECT_EQ(run(), Journal{owner_match});
        EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
        EXPECT_EQ(run(), Journal{owner_query});
        EXPECT_EQ(deliver(bus.last(), messages.reply("s", ":1.5")).front(), fired);
        EXPECT_EQ(run().back(), list_query);
        EXPECT_EQ(deliver(bus.sending(3), messages.owner_change(service_name, "", ":1.6")),
                  wake_up);
        EXPECT_EQ(run(), Journal{list_query});
    }

  private:
    support::BlockDriver<OnScreenControls> other_;
};

TEST_F(KeepingControlsTest, ReleaseTheirCallsAndThenTheMatchesThatWereKeptWhenStopped) {
    EXPECT_EQ(stop(), (Journal{"release #3 match", "release #6 ListAddedFeatures",
                               "release #5 ListAddedFeatures", "release #2 match"}));
}

TEST_F(KeepingControlsTest, ReleaseTheirCallsAndThenTheMatchesThatWereKeptWhenDestroyed) {
    EXPECT_EQ(destroy(), (Journal{"release #6 ListAddedFeatures", "release #3 match",
                                  "release #5 ListAddedFeatures", "release #2 match"}));
}

}  // namespace
