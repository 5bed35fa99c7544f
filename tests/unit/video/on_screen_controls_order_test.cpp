#include <cerrno>
#include <tuple>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;
using support::denied;

TEST_F(OnScreenControlsTest, TakesTheStepsOfItsConstructionInThisOrder) {
    controls.emplace(recorders.tools, "controls", support::observed({{"channel", 0}}));
    EXPECT_EQ(take(), (Journal{"event event_port", "int channel", "bool wdr or a default",
                               "fire event_port"}));
}

/// Leaves an addition under way, sending 4, and looks at what the block knows at each effect: its
/// state, and how much it has been listed and has added.
class OnScreenControlsOrderTest : public OnScreenControlsTest {
  protected:
    void SetUp() override {
        add();
        (void)take();
        (void)readings();
        remark([this] {
            return std::tuple(static_cast<int>(state()), listed().size(), added().size());
        });
    }

    /// What a callback does that has returned `result`. The addition is under way again.
    Journal done(int result, int expected = 0) {
        EXPECT_EQ(result, expected);
        state() = ControlsState::UpdatePending;
        return take();
    }
    int changed(const char* name, const char* new_owner, sd_bus_error error = SD_BUS_ERROR_NULL) {
        return bus.sending(1).deliver(messages.owner_change(name, "", new_owner), error);
    }

    const support::Message refused = messages.error("com.example.Error", "no");
};

TEST_F(OnScreenControlsOrderTest, RecordsWhatItHearsOfItsServiceAndIsThenWokenOnce) {
    EXPECT_EQ(done(bus.sending(1).install(messages.reply("s", "more"))),
              (Journal{"fire event_port | (2, 0, 0)"}));
    EXPECT_EQ(readings(), Journal{}) << "what confirms a match is not read";
    EXPECT_EQ(done(bus.sending(1).install(refused)),
              (Journal{"1 Error when adding match for NameOwnerChanged: no | (8, 0, 0)",
                       "release #1 match | (8, 0, 0)", "fire event_port | (0, 0, 0)"}));
    EXPECT_EQ(done(bus.sending(2).deliver(messages.reply("s", ":1.5")), 1),
              (Journal{"fire event_port | (5, 0, 0)"}));
    EXPECT_EQ(done(bus.sending(2).deliver(refused), 1),
              (Journal{"1 Error when retrieving NameOwner: no | (8, 0, 0)",
                       "fire event_port | (2, 0, 0)"}));
    EXPECT_EQ(done(changed(service_name, ":1.6")), (Journal{"fire event_port | (5, 0, 0)"}));
    EXPECT_EQ(done(changed(service_name, "")), (Journal{"fire event_port | (4, 0, 0)"}));
    EXPECT_EQ(done(changed("com.example.Other", "")), (Journal{"fire event_port | (8, 0, 0)"}));
}

TEST_F(OnScreenControlsOrderTest, RecordsWhatItsServiceAnswersAndIsThenWokenOnce) {
    const auto list = messages.reply("a(sas)", 1U, "WDR5", 1U, "sv");
    EXPECT_EQ(done(bus.sending(3).deliver(list)), (Journal{"fire event_port | (7, 1, 0)"}));
    EXPECT_EQ(done(bus.sending(3).deliver(refused)),
              (Journal{"1 Failed to call method ListAddedFeatures: no | (8, 1, 0)",
                       "fire event_port | (5, 1, 0)"}));
    (void)readings();
    EXPECT_EQ(done(bus.sending(4).deliver(messages.reply("s", "more"))),
              (Journal{"fire event_port | (9, 1, 1)"}));
    EXPECT_EQ(readings(), Journal{}) << "an addition's reply is not read";
    EXPECT_EQ(done(bus.sending(4).deliver(refused)),
              (Journal{"1 Failed to call method AddFeatures: no | (8, 1, 1)",
                       "fire event_port | (7, 1, 1)"}));
}

TEST_F(OnScreenControlsOrderTest, DoesNotLookAtItsErrorArguments) {
    EXPECT_EQ(done(bus.sending(1).install(messages.reply(""), denied)),
              (Journal{"fire event_port | (2, 0, 0)"}));
    EXPECT_EQ(done(bus.sending(2).deliver(messages.reply("s", ":1.5"), denied), 1),
              (Journal{"fire event_port | (5, 0, 0)"}));
    EXPECT_EQ(done(changed(service_name, "", denied)), (Journal{"fire event_port | (4, 0, 0)"}));
    EXPECT_EQ(done(bus.sending(3).deliver(messages.reply("a(sas)", 0U), denied)),
              (Journal{"fire event_port | (7, 0, 0)"}));
    EXPECT_EQ(done(bus.sending(4).deliver(messages.reply(""), denied)),
              (Journal{"fire event_port | (9, 0, 1)"}));
}

TEST_F(OnScreenControlsOrderTest, KeepsWhatItHasAddedWhenItsServiceIsLost) {
    (void)done(bus.sending(4).deliver(messages.reply("")));
    (void)done(changed(service_name, ""));
    EXPECT_EQ(added(), (Features{{"WDR1", "en-us"}}));
    (*controls)->stop();
    EXPECT_EQ(take(), (Journal{"release #1 match | (8, 0, 1)", "release #4 AddFeatures | (8, 0, 1)",
                               last_removal("WDR1") + " | (10, 0, 1)"}))
        << "stopped before it sends its removals";
}

TEST_F(OnScreenControlsTest, RecordsADoneRemovalAndIsThenWokenOnce) {
    make(false);
    list();
    answer_list(1U, "WDR0", 1U, "en-us");
    EXPECT_EQ(run().size(), 2U);
    added() = {{"WDR0", "en-us"}};
    (void)take();
    (void)readings();
    remark([this] { return std::tuple(static_cast<int>(state()), added().size()); });
    EXPECT_EQ(bus.last().deliver(messages.error("com.example.Error", "no"), denied), 0);
    EXPECT_EQ(take(), (Journal{"1 Failed to call method RemoveFeatures: no | (8, 1)",
                               "fire event_port | (7, 1)"}));
    EXPECT_EQ(readings(), (Journal{"read | (8, 1)"})) << "the text of the error";
    EXPECT_EQ(bus.last().deliver(messages.reply("s", "more"), denied), 0);
    EXPECT_EQ(take(), (Journal{"fire event_port | (9, 0)"}));
    EXPECT_EQ(readings(), Journal{}) << "a removal's reply is not read";
}

TEST_F(OnScreenControlsTest, TakesTheConnectionAnewAtEachUse) {
    make(true);
    const auto use_next = [this] {
        recorders.tools.use_bus(bus.count() % 2 == 0 ? other_bus() : messages.bus());
    };
    const auto replies = {messages.reply("s", ":1.5"), messages.reply("a(sas)", 0U),
                          messages.reply("")};
    use_next();
    EXPECT_EQ(run().size(), 1U);
    EXPECT_EQ(bus.last().install(messages.reply("")), 0);
    for (const support::Message& reply : replies) {
        use_next();
        (void)run();
        EXPECT_GE(bus.last().deliver(reply), 0);
    }
    use_next();
    (*controls)->stop();
    (void)take();
    ASSERT_EQ(bus.count(), 5U);
    for (std::size_t sending = 1; sending <= 5; ++sending)
        EXPECT_EQ(bus.sending(sending).bus, sending % 2 == 0 ? messages.bus() : other_bus());
}

TEST_F(OnScreenControlsTest, SendsEachStepBeforeItWaitsForTheAnswer) {
    make(true);
    (void)take();
    remark([this] { return static_cast<int>(state()); });
    EXPECT_EQ(run(), (Journal{owner_match + " | 0"}));
    EXPECT_EQ(bus.last().install(messages.reply("")), 0);
    EXPECT_EQ(run(), (Journal{owner_query + " | 2"}));
    deliver(bus.last(), messages.reply("s", ":1.5"), 1);
    bus.answer_next({-EIO});
    EXPECT_EQ(run(), (Journal{"release #2 GetNameOwner | 5", list_query + " | 5"}));
    EXPECT_EQ(log.take(),
              (Lines{"1 Failed to call method ListAddedFeatures: Input/output error | 6"}));
    state() = ControlsState::FeaturesListed;
    bus.answer_next({-EIO});
    EXPECT_EQ(run(), (Journal{first_addition + " | 7"}));
    EXPECT_EQ(log.take(), (Lines{"1 Failed to call method AddFeatures: Input/output error | 7"}));
}

/// Controls that keep a match, which was refused while another block has an equal one, and a call,
/// which a newer one has replaced.
class KeepingControlsTest : public OnScreenControlsTest {
  protected:
    KeepingControlsTest()
        : other_(recorders.tools, "other", Fenwa::BlockConfiguration{{"channel", 1}}) {
        EXPECT_TRUE(other_->run());
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        (void)take();
        make(true);
        EXPECT_TRUE((*controls)->run());
        EXPECT_EQ(bus.last().install(messages.error("com.example.Error", "no")), 0);
        EXPECT_TRUE((*controls)->run());
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        EXPECT_TRUE((*controls)->run());
        deliver(bus.last(), messages.reply("s", ":1.5"), 1);
        EXPECT_TRUE((*controls)->run());
        deliver(bus.sending(3), messages.owner_change(service_name, "", ":1.6"));
        EXPECT_TRUE((*controls)->run());
        (void)take();
    }

  private:
    support::BlockDriver<OnScreenControls> other_;
};

TEST_F(KeepingControlsTest, ReleaseTheirCallsAndThenTheMatchesThatWereKeptWhenStopped) {
    (*controls)->stop();
    EXPECT_EQ(take(), (Journal{"release #3 match", "release #6 ListAddedFeatures",
                               "release #5 ListAddedFeatures", "release #2 match"}));
}

TEST_F(KeepingControlsTest, ReleaseTheirCallsAndThenTheMatchesThatWereKeptWhenDestroyed) {
    controls.reset();
    EXPECT_EQ(take(), (Journal{"release #6 ListAddedFeatures", "release #3 match",
                               "release #5 ListAddedFeatures", "release #2 match"}));
}

}  // namespace
