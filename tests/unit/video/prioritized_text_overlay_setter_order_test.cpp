#include <cerrno>

#include "tests/unit/video/prioritized_text_overlay_setter_fixture.hpp"

namespace {

using namespace overlay_test;
using support::denied;

class PrioritizedTextOverlaySetterOrderTest : public PrioritizedTextOverlaySetterTest {};

TEST_F(PrioritizedTextOverlaySetterOrderTest, OnlyReadsItsKeysWhenItIsBuilt) {
    setter.emplace(recorders.tools, "setter", support::observed({}));
    EXPECT_EQ(take(),
              (Journal{"string prio_text_overlay or a default", "int duration or a default"}));
}

TEST_F(PrioritizedTextOverlaySetterOrderTest, RecordsAnAnswerAndThenGivesItsCallUp) {
    make(0);
    EXPECT_EQ(start(), (Journal{set("0")}));
    remark([this] { return overlay_set(); });
    EXPECT_EQ(bus.last().deliver(messages.reply("s", "more"), denied), 0);
    EXPECT_EQ(take(), (Journal{"2 Could not set prioritized text overlay: not you | false",
                               "release #1 Set | false"}));
    journal.remark_with({});
    EXPECT_EQ(start(), (Journal{set("0")}));
    remark([this] { return overlay_set(); });
    EXPECT_EQ(bus.last().deliver(messages.reply("s", "more")), 0);
    EXPECT_EQ(take(), (Journal{"release #2 Set | true"}));
    EXPECT_EQ(readings(), Journal{}) << "an answer is not read";
    journal.remark_with({});
    bus.end_next_call(1);
    setter.reset();
    EXPECT_EQ(take(), (Journal{unset, "free the error"}));
}

TEST_F(PrioritizedTextOverlaySetterOrderTest, TellsOfAFailureBeforeItGivesTheReplyAndItsCallsUp) {
    show();
    EXPECT_EQ(start(), (Journal{set("0")}));
    bus.end_next_call(1, denied, messages.reply("s", "more"));
    setter.reset();
    EXPECT_EQ(take(), (Journal{unset, "2 Could not unset prioritized text overlay: not you",
                               "release the reply to Unset", "free the error", "release #2 Set"}));
    EXPECT_EQ(readings(), Journal{}) << "the reply is not read";
}

TEST_F(PrioritizedTextOverlaySetterOrderTest, TakesTheConnectionWithEachStart) {
    show();
    recorders.tools.use_bus(other_bus());
    EXPECT_EQ(start(), (Journal{set("0")}));
    EXPECT_EQ(bus.sending(1).bus, messages.bus());
    EXPECT_EQ(bus.sending(2).bus, other_bus());
    recorders.tools.use_bus(messages.bus());
    bus.end_next_call(0);
    EXPECT_EQ(destroy(), (Journal{unset, "release #2 Set"}));
    EXPECT_EQ(bus.last().bus, other_bus()) << "the connection of the last start";
}

}  // namespace
