#include <cerrno>
#include <utility>

#include "tests/unit/video/prioritized_text_overlay_setter_fixture.hpp"

namespace {

using namespace overlay_test;
using support::denied;
using support::MakeMessage;
using support::reply_of;
using support::silent;

constexpr sd_bus_error no_error = SD_BUS_ERROR_NULL;
const std::string set_line = "2 Could not set prioritized text overlay: ";
const std::string unset_line = "2 Could not unset prioritized text overlay: ";

TEST_F(PrioritizedTextOverlaySetterTest, DoesNothingWithoutAText) {
    for (const Fenwa::BlockConfiguration& config : std::initializer_list<Fenwa::BlockConfiguration>{
             {}, {{"duration", 5}}, {{"prio_text_overlay", {""}}}}) {
        make_with(config);
        EXPECT_EQ(start(), Journal{});
        EXPECT_EQ(LayoutProbe::bus(block()), nullptr);
        EXPECT_EQ(stop(), Journal{});
        EXPECT_EQ(destroy(), Journal{});
    }
}

TEST_F(PrioritizedTextOverlaySetterTest, SetsItsTextWithoutALimitUnlessToldOtherwise) {
    make_with({{"prio_text_overlay", {"Smoke"}}});
    EXPECT_EQ(start(), Journal{set("0")});
    expect_handed_over(LayoutProbe::call_slot_field(block()), &block());
    EXPECT_EQ(LayoutProbe::bus(block()), messages.bus());
    EXPECT_FALSE(overlay_set());
    EXPECT_EQ(destroy(), Journal{"release #1 Set"}) << "what was never answered is not taken away";
}

TEST_F(PrioritizedTextOverlaySetterTest, HandsTheBitsOfALimitOnAndTakesNothingAwayThatHasOne) {
    for (const auto& [duration, sent] : {std::pair{1, "1"},
                                         {2147483647, "2147483647"},
                                         {-1, "4294967295"},
                                         {-2147483647 - 1, "2147483648"}}) {
        make(duration);
        EXPECT_EQ(start(), Journal{set(sent)});
        EXPECT_EQ(answer(bus.count()), Journal{bus.last().release_text});
        EXPECT_TRUE(overlay_set());
        EXPECT_EQ(destroy(), Journal{}) << duration;
    }
}

TEST_F(PrioritizedTextOverlaySetterTest, SaysThatTheTextCouldNotBeSent) {
    make(0);
    bus.answer_next({-EPERM, 0});
    EXPECT_EQ(start(), (Journal{set("0"), set_line + "Operation not permitted"}));
    EXPECT_FALSE(call_pending());
    EXPECT_EQ(start(), Journal{set("0")});
    EXPECT_TRUE(call_pending()) << "a result of zero is success";
}

/// An answer, and the end of the line about it; null for one that counts.
struct ReplyCase : support::NamedCase {
    MakeMessage reply;
    sd_bus_error error;
    const char* refusal;
};

class OverlayReplyTest : public PrioritizedTextOverlaySetterTest,
                         public testing::WithParamInterface<ReplyCase> {};

TEST_P(OverlayReplyTest, IsRecordedUnreadAndThenTheCallIsGivenUp) {
    const ReplyCase& reply = GetParam();
    request();
    remark([this] { return overlay_set(); });
    EXPECT_EQ(deliver(bus.last(), reply.reply(messages), reply.error),
              reply.refusal == nullptr
                  ? Journal{"release #1 Set | true"}
                  : (Journal{set_line + reply.refusal + " | false", "release #1 Set | false"}));
    EXPECT_EQ(readings(), Journal{});
    journal.remark_with({});
    if (reply.refusal == nullptr)
        bus.end_next_call(0);
    EXPECT_EQ(destroy(), reply.refusal == nullptr ? removal : Journal{});
}

const ReplyCase reply_cases[] = {
    {{"Empty"}, reply_of(""), no_error, nullptr},
    {{"AnyBody"}, reply_of("si", "more", 5), no_error, nullptr},
    {{"Error"}, support::error_of("a.Error", "no"), no_error, nullptr},
    {{"NamelessErrorArgument"}, reply_of(""), support::nameless, nullptr},
    {{"ErrorArgument"}, reply_of("s", "more"), denied, "not you"},
    {{"ErrorArgumentWithoutText"}, reply_of(""), silent, ""},
};

INSTANTIATE_TEST_SUITE_P(Replies, OverlayReplyTest, testing::ValuesIn(reply_cases),
                         support::case_name<ReplyCase>);

TEST_F(PrioritizedTextOverlaySetterTest, DropsAPendingReplyWhenStopped) {
    request();
    EXPECT_EQ(stop(), Journal{"release #1 Set"});
    EXPECT_EQ(stop(), Journal{});
    EXPECT_EQ(start(), Journal{set("0")});
    EXPECT_EQ(answer(2), Journal{"release #2 Set"});
    EXPECT_EQ(stop(), Journal{});
    bus.end_next_call(0);
    EXPECT_EQ(destroy(), removal) << "what is set outlives the stop";
}

TEST_F(PrioritizedTextOverlaySetterTest, TakesTheFirstReplyAlsoWhenItStartsAgain) {
    for (const int sent : {1, -ENOBUFS}) {
        make(5);
        EXPECT_EQ(start(), Journal{set("5")});
        const std::size_t first = bus.count();
        bus.answer_next({sent});
        EXPECT_EQ(start().size(), sent < 0 ? 2U : 1U) << "the line, when it cannot be sent";
        const Journal newest{bus.last().release_text};
        EXPECT_EQ(answer(first), sent < 0 ? Journal{} : newest) << "any reply gives the newest up";
        EXPECT_TRUE(overlay_set());
        EXPECT_EQ(stop(), Journal{bus.sending(first).release_text});
    }
}

TEST_F(PrioritizedTextOverlaySetterTest, DropsTheRepliesOfEveryStartWhenStopped) {
    request();
    EXPECT_EQ(start(), Journal{set("0")});
    EXPECT_EQ(stop(), (Journal{"release #2 Set", "release #1 Set"}));
    EXPECT_EQ(destroy(), Journal{});
}

/// How the call ends that takes the text away, and the effects of the destruction.
struct RemovalCase : support::NamedCase {
    int result;
    sd_bus_error error;
    bool reply;
    Journal effects;
};

class OverlayRemovalTest : public PrioritizedTextOverlaySetterTest,
                           public testing::WithParamInterface<RemovalCase> {};

TEST_P(OverlayRemovalTest, SaysWhatFailedBeforeItGivesTheReplyAndItsCallsUp) {
    const RemovalCase& removal = GetParam();
    show();
    EXPECT_EQ(start(), Journal{set("0")});
    EXPECT_EQ(start(), Journal{set("0")});
    (void)readings();
    bus.end_next_call(removal.result, removal.error,
                      removal.reply ? messages.reply("i", 5) : support::Message(nullptr));
    Journal effects{unset};
    effects.insert(effects.end(), removal.effects.begin(), removal.effects.end());
    effects.insert(effects.end(), {"release #3 Set", "release #2 Set"});
    EXPECT_EQ(destroy(), effects);
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(readings(), Journal{});
}

const std::string released = "release the reply to Unset";
const std::string freed = "free the error";

const RemovalCase removal_cases[] = {
    {{"Done"}, 0, no_error, false, {freed}},
    {{"Answered"}, 1, no_error, true, {released, freed}},
    {{"Refused"}, -EIO, denied, false, {unset_line + "not you", freed}},
    {{"RefusedWithoutText"}, -EIO, silent, false, {unset_line, freed}},
    {{"AnsweredWithAnError"}, 1, denied, true, {unset_line + "not you", released, freed}},
    {{"NotSent"}, -EPERM, no_error, false, {unset_line + "Operation not permitted", freed}},
};

INSTANTIATE_TEST_SUITE_P(Endings, OverlayRemovalTest, testing::ValuesIn(removal_cases),
                         support::case_name<RemovalCase>);

TEST_F(PrioritizedTextOverlaySetterTest, TakesTheConnectionWithEachStart) {
    show();
    recorders.tools.use_bus(other_bus());
    EXPECT_EQ(start(), Journal{set("0")});
    EXPECT_EQ(bus.sending(1).bus, messages.bus());
    EXPECT_EQ(bus.sending(2).bus, other_bus());
    recorders.tools.use_bus(messages.bus());
    bus.end_next_call(0);
    EXPECT_EQ(destroy().front(), unset);
    EXPECT_EQ(bus.last().bus, other_bus()) << "the connection of the last start";
}

}  // namespace
