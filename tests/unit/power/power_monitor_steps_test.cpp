#include <cerrno>
#include <tuple>

#include "tests/unit/power/power_monitor_fixture.hpp"

namespace {

using namespace monitor_test;
using support::denied;
using support::MessageFunction;

TEST_F(PowerMonitorTest, InstallsTheMatchAndThenAsksForTheValueOnce) {
    watch(7.0);
    for (int again = 0; again < 2; ++again)
        EXPECT_EQ(run(), Journal{enough}) << "the same outcome again";
    EXPECT_TRUE(call_pending()) << "the answered call is given up with the block";
    expect_handed_over(bus.sending(1), LayoutProbe::match_slot_field(block()), &block());
    expect_handed_over(bus.sending(2), LayoutProbe::call_slot_field(block()), &block());
}

TEST_F(PowerMonitorTest, TakesWhatIsUnansweredBackAndAsksAnewInEachRun) {
    make();
    EXPECT_EQ(run(), (Journal{change_match, too_little}));
    EXPECT_EQ(run(), (Journal{"release #1 match", change_match, too_little}));
    EXPECT_EQ(install(bus.last(), messages.reply("")), taken);
    EXPECT_EQ(run(), (Journal{query, too_little}));
    EXPECT_EQ(run(), (Journal{"release #3 Get", query, too_little}));
    EXPECT_TRUE(match_held());
    EXPECT_TRUE(call_pending());
}

TEST_F(PowerMonitorTest, SaysWhatCouldNotBeSentAndTriesAgainInTheNextRun) {
    make(5.0);
    bus.answer_next({1, -EPERM, 1, 1, -EPERM});
    EXPECT_EQ(run(), (Journal{change_match, enough}));
    EXPECT_EQ(run(), (Journal{"release #1 match", change_match,
                              "1 Failed to send properties changed signal handler request: "
                              "Operation not permitted",
                              enough}));
    EXPECT_FALSE(match_held());
    EXPECT_EQ(run(), (Journal{change_match, enough}));
    EXPECT_EQ(install(bus.last(), messages.reply("")), taken);
    EXPECT_EQ(run(), (Journal{query, enough}));
    EXPECT_EQ(run(), (Journal{"release #4 Get", query,
                              "1 Failed to query PowerReceived: Operation not permitted", enough}));
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(run(), (Journal{query, enough}));
    EXPECT_EQ(failures(), 0);
}

TEST_F(PowerMonitorTest, TakesAResultOfZeroFromSdBusForSuccess) {
    bus.answer_next({0, 0});
    watch(7.0);
}

TEST_F(PowerMonitorTest, TakesTheConnectionAnewAtEachUse) {
    match();
    recorders.tools.use_bus(other_bus());
    EXPECT_EQ(run(), (Journal{query, too_little}));
    EXPECT_EQ(bus.sending(1).bus, messages.bus());
    EXPECT_EQ(bus.sending(2).bus, other_bus());
}

TEST_F(PowerMonitorTest, IsStoppedBeforeItGivesItsMatchAndThenItsCallUp) {
    ask();
    remark([this] { return LayoutProbe::stopped(block()); });
    EXPECT_EQ(stop(), (Journal{"release #1 match | true", "release #2 Get | true"}));
    EXPECT_FALSE(match_held());
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(stop(), Journal{});
    EXPECT_EQ(destroy(), Journal{});
}

TEST_F(PowerMonitorTest, GivesItsCallAndThenItsMatchUpWhenDestroyed) {
    ask();
    EXPECT_EQ(destroy(), (Journal{"release #2 Get", "release #1 match"}));
}

TEST_F(PowerMonitorTest, GoesOnWhereItWasWhenItIsRunAfterAStop) {
    make();
    EXPECT_EQ(stop(), Journal{});
    EXPECT_EQ(run(), (Journal{change_match, too_little}));
    EXPECT_EQ(stop(), Journal{"release #1 match"});
    EXPECT_EQ(run(), (Journal{change_match, too_little}));
    EXPECT_EQ(install(bus.last(), messages.reply("")), answered());
    EXPECT_EQ(run(), (Journal{query, too_little}));
    EXPECT_EQ(stop(), (Journal{"release #2 match", "release #3 Get"}));
    EXPECT_EQ(run(), (Journal{query, too_little})) << "the match counts as installed";
}

TEST_F(PowerMonitorTest, KeepsWhatComesLateButIsNotWokenOnceItIsStopped) {
    ask();
    EXPECT_EQ(stop().size(), 2U);
    EXPECT_EQ(install(bus.sending(1), messages.reply(""), denied),
              answered({"1 Failed to add match for PowerReceived: not you"}));
    EXPECT_EQ(deliver(bus.sending(2), messages.reply(""), denied),
              answered({"1 Failed to get PowerReceived: not you"}));
    EXPECT_EQ(failures(), 2) << "they are counted all the same";
    EXPECT_EQ(install(bus.sending(1), messages.reply("")), answered());
    EXPECT_EQ(deliver(bus.sending(2), messages.reply("v", "d", 7.0)), answered());
    EXPECT_EQ(received(), 7.0);
    EXPECT_EQ(change(8.0), answered());
    EXPECT_EQ(received(), 8.0);
    EXPECT_EQ(run(), Journal{enough}) << "the late value counts";
}

/// Looks at what a monitor knows at each effect: whether its match counts, whether it has been
/// answered, the power, and the failures.
class PowerMonitorReplyTest : public PowerMonitorTest {
  protected:
    void look() {
        remark([this] {
            return std::tuple(LayoutProbe::match_added(block()),
                              LayoutProbe::value_received(block()), received(), failures());
        });
    }
    /// Whether a failure, which is logged in one line, makes the block wake itself.
    static bool wakes(const Journal& effects) {
        EXPECT_EQ(effects.back(), "returns -22");
        return effects.size() == 4;
    }
};

TEST_F(PowerMonitorReplyTest, AreTakenBeforeTheBlockIsWokenAndAnswers) {
    make(5.0);
    EXPECT_EQ(run(), (Journal{change_match, enough}));
    look();
    for (const support::Message& reply :
         {messages.reply("s", "more"), messages.error("com.example.Error", "too many")}) {
        EXPECT_EQ(install(bus.last(), reply),
                  (Journal{fired + " | (true, false, 5, 0)", answer + " | (true, false, 5, 0)",
                           "returns -22"}));
        EXPECT_EQ(bus.answered(), reply);
    }
    EXPECT_EQ(run().front(), query + " | (true, false, 5, 0)");
    const support::Message value = messages.reply("v", "d", 4.0);
    EXPECT_EQ(deliver(bus.last(), value),
              (Journal{fired + " | (true, true, 4, 0)", answer + " | (true, true, 4, 0)",
                       "returns -22"}));
    EXPECT_EQ(bus.answered(), value);
}

TEST_F(PowerMonitorReplyTest, AreTakenWithANamelessErrorArgument) {
    make();
    EXPECT_EQ(run(), (Journal{change_match, too_little}));
    EXPECT_EQ(install(bus.last(), messages.reply(""), support::nameless), taken);
    EXPECT_EQ(run(), (Journal{query, too_little}));
    EXPECT_EQ(deliver(bus.last(), messages.reply("v", "d", 7.0), support::nameless), taken);
    EXPECT_EQ(change(8.0, support::nameless), taken);
    EXPECT_EQ(run(), Journal{enough});
}

TEST_F(PowerMonitorReplyTest, AreNotTakenWithASetErrorArgument) {
    make();
    EXPECT_EQ(run(), (Journal{change_match, too_little}));
    look();
    EXPECT_EQ(install(bus.last(), messages.reply(""), denied),
              (Journal{"1 Failed to add match for PowerReceived: not you | (false, false, 0, 0)",
                       fired + " | (false, false, 0, 1)", answer + " | (false, false, 0, 1)",
                       "returns -22"}));
    journal.remark_with({});
    EXPECT_EQ(install(bus.last(), messages.reply(""), support::silent),
              answered({"1 Failed to add match for PowerReceived: ", fired}));
    EXPECT_EQ(run(), (Journal{"release #1 match", change_match, too_little}));
    EXPECT_EQ(install(bus.last(), messages.reply("")), taken);
    EXPECT_EQ(run(), (Journal{query, too_little}));
    (void)readings();
    look();
    EXPECT_EQ(deliver(bus.last(), messages.reply("v", "d", 4.0), denied),
              (Journal{"1 Failed to get PowerReceived: not you | (true, false, 0, 0)",
                       fired + " | (true, false, 0, 1)", answer + " | (true, false, 0, 1)",
                       "returns -22"}));
    EXPECT_EQ(readings(), Journal{});
    journal.remark_with({});
    EXPECT_EQ(deliver(bus.last(), messages.reply(""), support::silent),
              answered({"1 Failed to get PowerReceived: ", fired}));
    EXPECT_EQ(run(), (Journal{"release #3 Get", query, too_little}));
}

TEST_F(PowerMonitorReplyTest, AreAskedForAgainWhenTheyCannotBeRead) {
    ask();
    look();
    int failed = 0;
    const auto fail = [&](const support::MakeMessage& make,
                          const std::string& reason = "No such device or address") {
        const std::string now = " | (true, false, 0, " + std::to_string(++failed) + ")";
        EXPECT_EQ(deliver(bus.last(), make(messages)),
                  (Journal{fired + now, "1 Failed to read value of PowerReceived: " + reason + now,
                           answer + now, "returns -22"}));
    };
    fail(support::reply_of(""));
    fail(support::reply_of("d", 4.0));
    fail(support::reply_of("v", "i", 4));
    fail(support::reply_of("v", "s", "much"));
    fail(support::error_of("org.freedesktop.DBus.Error.ServiceUnknown", "nobody there"));
    fail(support::error_of("org.freedesktop.DBus.Error.NoReply", nullptr));
    bus.make_up(MessageFunction::read, {0});
    fail(support::reply_of("v", "d", 4.0), "Success");
    journal.remark_with({});
    EXPECT_EQ(run(), (Journal{"release #2 Get", query, too_little}));
}

TEST_F(PowerMonitorReplyTest, AreTakenWhateverTheirValueIs) {
    for (const double power : {0.0, -1.0, infinity, not_a_number}) {
        watch(power);
        EXPECT_EQ(run(), Journal{power > 5.0 ? enough : too_little}) << power;
    }
}

TEST_F(PowerMonitorReplyTest, AreTakenFromAnErrorWhoseBodyIsAValue) {
    ask();
    EXPECT_EQ(deliver(bus.last(), messages.error_with_body("a.Error", "v", "d", 7.0)), taken);
    EXPECT_EQ(received(), 7.0);
    bus.make_up(MessageFunction::read, {1});
    EXPECT_EQ(deliver(bus.last(), messages.reply("v", "d", 4.0)), taken);
    EXPECT_EQ(received(), 0.0) << "what a read leaves alone is zero";
}

TEST_F(PowerMonitorReplyTest, NoLongerWakeTheBlockAfterElevenFailuresInARow) {
    ask();
    const auto fail = [this](int failure) {
        switch (failure % 3) {
            case 0:
                return install(bus.sending(1), messages.reply(""), denied);
            case 1:
                return deliver(bus.sending(2), messages.reply(""), denied);
            default:
                return deliver(bus.sending(2), messages.reply(""));
        }
    };
    for (int series = 0; series < 3; ++series) {
        for (int failure = 1; failure <= 13; ++failure)
            EXPECT_EQ(wakes(fail(series + failure)), failure <= 10) << failure;
        EXPECT_EQ(failures(), 13);
        if (series == 0)
            EXPECT_EQ(install(bus.sending(1), messages.reply("")), taken);
        else
            EXPECT_EQ(deliver(bus.sending(2), messages.reply("v", "d", 4.0)), taken);
        EXPECT_EQ(failures(), 0) << "a success begins a new count";
    }
}

TEST_F(PowerMonitorReplyTest, GiveTheResultOfTheirAnswersBack) {
    make();
    EXPECT_EQ(run(), (Journal{change_match, too_little}));
    bus.make_up(MessageFunction::reply_method_return, {3, 4, 5, 6, 7, 8});
    EXPECT_EQ(install(bus.sending(1), messages.reply(""), denied).back(), "returns 3");
    EXPECT_EQ(install(bus.sending(1), messages.reply("")).back(), "returns 4");
    EXPECT_EQ(change(5.0).back(), "returns 5");
    EXPECT_EQ(run(), (Journal{query, enough}));
    EXPECT_EQ(deliver(bus.last(), messages.reply(""), denied).back(), "returns 6");
    EXPECT_EQ(deliver(bus.last(), messages.reply("")).back(), "returns 7");
    EXPECT_EQ(deliver(bus.last(), messages.reply("v", "d", 1.0)).back(), "returns 8");
}

}  // namespace
