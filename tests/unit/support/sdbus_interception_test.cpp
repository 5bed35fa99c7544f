#include "tests/support/sdbus_interception.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <stdexcept>

#include "tests/support/bus_messages.hpp"
#include "tests/support/sdbus_arguments.hpp"

namespace {

using Journal = std::vector<std::string>;

std::string rendered(const char* types, ...) {
    std::va_list arguments;
    va_start(arguments, types);
    std::string text = support::render_arguments(types, arguments);
    va_end(arguments);
    return text;
}

TEST(RenderedArgumentsTest, NameTypeAndValueOfEachArgument) {
    EXPECT_EQ(rendered(nullptr), "");
    EXPECT_EQ(rendered(""), "");
    EXPECT_EQ(rendered("s", "main"), "s \"main\"");
    EXPECT_EQ(rendered("sog", nullptr, "/a", "i"), "s null, o \"/a\", g \"i\"");
    EXPECT_EQ(rendered("ybnqiu", 1, 1, -2, 3, -4, 4000000000U),
              "y 1, b true, n -2, q 3, i -4, u 4000000000");
    EXPECT_EQ(rendered("xt", std::int64_t{-5}, std::numeric_limits<std::uint64_t>::max()),
              "x -5, t 18446744073709551615");
}

TEST(RenderedArgumentsTest, TellDoublesApart) {
    EXPECT_EQ(rendered("ddd", 0.1, -0.0, std::numeric_limits<double>::infinity()),
              "d 0.1, d -0, d inf");
    EXPECT_EQ(rendered("d", 0.1 + 0.2), "d 0.30000000000000004");
}

TEST(RenderedArgumentsTest, GoIntoContainers) {
    EXPECT_EQ(rendered("v", "d", 2.5), "v <d 2.5>");
    EXPECT_EQ(rendered("as", 2U, "a", "b"), "as [s \"a\"; s \"b\"]");
    EXPECT_EQ(rendered("as", 0U), "as []");
    EXPECT_EQ(rendered("a{sv}i", 1U, "key", "b", 0, 9), "a{sv} [s \"key\", v <b false>], i 9");
    EXPECT_EQ(rendered("(ia(yy))s", 1, 1U, 2, 3, "end"), "(i 1, a(yy) [(y 2, y 3)]), s \"end\"");
}

TEST(RenderedArgumentsTest, RefuseWhatIsNoSignature) {
    EXPECT_THROW(rendered("!"), std::invalid_argument);
    EXPECT_THROW(rendered("a"), std::invalid_argument);
}

int nothing(sd_bus_message* /*message*/, void* /*userdata*/, sd_bus_error* /*error*/) {
    return 0;
}

TEST(InterceptionTest, ReachesSdBusItselfWhenThereIsNone) {
    sd_bus_slot* slot = nullptr;
    EXPECT_EQ(
        sd_bus_call_method_async(nullptr, &slot, "a.b", "/a", "a.b", "C", nothing, nullptr, "i", 5),
        -EINVAL);
    EXPECT_EQ(sd_bus_add_match(nullptr, &slot, "", nothing, nullptr), -EINVAL);
    EXPECT_EQ(sd_bus_add_match_async(nullptr, &slot, "", nothing, nothing, nullptr), -EINVAL);
    EXPECT_EQ(sd_bus_match_signal_async(nullptr, &slot, "a.b", "/a", "a.b", "C", nothing, nothing,
                                        nullptr),
              -EINVAL);
    EXPECT_EQ(sd_bus_slot_unref(nullptr), nullptr);
}

TEST(InterceptionTest, ForwardsTheReleaseOfARealSlot) {
    support::Messages messages;
    sd_bus_slot* slot = nullptr;
    ASSERT_GE(sd_bus_add_filter(messages.bus(), &slot, nothing, nullptr), 0);
    sd_bus_slot_ref(slot);
    const support::Interception bus;
    EXPECT_EQ(sd_bus_slot_unref(slot), nullptr);
    EXPECT_EQ(sd_bus_slot_unref(slot), nullptr);
}

TEST(InterceptionTest, RecordsWhatIsSentAndWhatIsReleased) {
    support::Interception bus;
    sd_bus_slot* slot = nullptr;
    int object = 0;
    auto* const connection = reinterpret_cast<sd_bus*>(&object);
    EXPECT_EQ(sd_bus_call_method_async(connection, &slot, "a.b", "/a", "a.c", "Do", nothing,
                                       &object, "is", 5, "x"),
              1);
    EXPECT_NE(slot, nullptr);
    EXPECT_EQ(sd_bus_slot_unref(slot), nullptr);
    EXPECT_EQ(bus.take_journal(), (Journal{"call a.b /a a.c Do(i 5, s \"x\")", "release #1 Do"}));
    EXPECT_EQ(bus.last().bus, connection);
    EXPECT_EQ(bus.last().slot_field, &slot);
    EXPECT_EQ(bus.last().callback, &nothing);
    EXPECT_EQ(bus.last().userdata, &object);
    EXPECT_TRUE(bus.last().released);
}

TEST(InterceptionTest, TellsCallsThatNobodyWaitsForAndBlockingMatchesApart) {
    support::Interception bus;
    EXPECT_EQ(
        sd_bus_call_method_async(nullptr, nullptr, "a.b", "/a", "a.c", "Do", nullptr, nullptr, ""),
        1);
    EXPECT_EQ(
        sd_bus_call_method_async(nullptr, nullptr, "a.b", "/a", "a.c", "Do", nothing, nullptr, ""),
        1);
    sd_bus_slot* slot = nullptr;
    EXPECT_EQ(sd_bus_add_match(nullptr, &slot, "rule", nothing, &slot), 1);
    EXPECT_EQ(bus.last().callback, &nothing);
    EXPECT_EQ(bus.last().install_callback, nullptr);
    EXPECT_EQ(bus.last().userdata, &slot);
    EXPECT_THROW((void)bus.sending(1).deliver(nullptr), std::logic_error);
    sd_bus_slot_unref(slot);
    EXPECT_EQ(bus.take_journal(),
              (Journal{"call a.b /a a.c Do() without reply", "call a.b /a a.c Do()",
                       "blocking match rule", "release #3 match"}));
}

TEST(InterceptionTest, LeavesTheSlotAloneWhenItAnswersWithAFailure) {
    support::Interception bus;
    int nowhere = 0;
    auto* slot = reinterpret_cast<sd_bus_slot*>(&nowhere);
    bus.answer_next({-EIO, 0});
    EXPECT_EQ(sd_bus_add_match_async(nullptr, &slot, "rule", nothing, nothing, nullptr), -EIO);
    EXPECT_EQ(slot, reinterpret_cast<sd_bus_slot*>(&nowhere));
    EXPECT_EQ(sd_bus_match_signal_async(nullptr, &slot, "a.b", "/a", "a.c", "Changed", nothing,
                                        nothing, nullptr),
              0);
    sd_bus_slot_unref(slot);
    EXPECT_EQ(bus.take_journal(),
              (Journal{"match rule", "match signal a.b /a a.c Changed", "release #2 Changed"}));
}

TEST(InterceptionTest, FailsATestThatLeavesSomethingBehind) {
    EXPECT_NONFATAL_FAILURE(
        {
            support::Interception bus;
            EXPECT_EQ(sd_bus_add_match_async(nullptr, nullptr, "r", nothing, nothing, nullptr), 1);
        },
        "nobody looked at: match r");
    EXPECT_NONFATAL_FAILURE(
        {
            support::Interception bus;
            sd_bus_slot* slot = nullptr;
            sd_bus_add_match_async(nullptr, &slot, "r", nothing, nothing, nullptr);
            (void)bus.take_journal();
        },
        "slot kept: match r");
    EXPECT_NONFATAL_FAILURE(
        {
            support::Interception bus;
            sd_bus_slot* slot = nullptr;
            sd_bus_add_match_async(nullptr, &slot, "r", nothing, nothing, nullptr);
            sd_bus_slot_unref(slot);
            sd_bus_slot_unref(slot);
            (void)bus.take_journal();
        },
        "slot released twice: match r");
}

}  // namespace
