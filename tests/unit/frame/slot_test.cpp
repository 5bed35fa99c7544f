#include "src/frame/overlapping_calls.hpp"

#include <gtest/gtest.h>

#include "fenwa/bus_call.hpp"
#include "tests/support/sdbus_interception.hpp"

namespace {

using blocks::SupersededSlots;
using Fenwa::Slot;
using Journal = std::vector<std::string>;

class SlotTest : public testing::Test {
  protected:
    /// Fills the slot.
    void fill(Slot& slot) {
        EXPECT_GE(sd_bus_add_match_async(nullptr, slot.out(), "rule", nullptr, nullptr, nullptr),
                  0);
        EXPECT_EQ(bus.take_journal(), (Journal{"match rule"}));
    }

    support::Interception bus;
};

TEST_F(SlotTest, IsEmptyAtFirstAndReleasesNothing) {
    {
        Slot slot;
        EXPECT_FALSE(slot);
        slot.reset();
        Fenwa::Message message;
        message.reset();
    }
    EXPECT_EQ(bus.take_journal(), Journal{});
}

TEST_F(SlotTest, ReleasesWhatItHoldsWhenReset) {
    Slot slot;
    fill(slot);
    EXPECT_TRUE(slot);
    slot.reset();
    EXPECT_FALSE(slot);
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match"}));
}

TEST_F(SlotTest, ReleasesWhatItHoldsWhenDestroyed) {
    {
        Slot slot;
        fill(slot);
    }
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match"}));
}

TEST_F(SlotTest, StaysEmptyWhenNothingCouldBeSent) {
    Slot slot;
    bus.answer_next({-5});
    EXPECT_EQ(sd_bus_add_match_async(nullptr, slot.out(), "rule", nullptr, nullptr, nullptr), -5);
    EXPECT_FALSE(slot);
    EXPECT_EQ(bus.take_journal(), (Journal{"match rule"}));
}

TEST_F(SlotTest, HandsOnWhatItHoldsWhenMoved) {
    Slot from;
    fill(from);
    {
        const Slot to(std::move(from));
        EXPECT_FALSE(from);  // NOLINT(bugprone-use-after-move): a moved-from slot is empty
        EXPECT_TRUE(to);
        EXPECT_EQ(bus.take_journal(), Journal{});
    }
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match"}));
}

TEST_F(SlotTest, ReleasesWhatItHoldsWhenAssignedToOrHandedOutForTheNextOne) {
    Slot first;
    Slot second;
    fill(first);
    fill(second);
    first = std::move(second);
    EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move): a moved-from slot is empty
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match"}));
    EXPECT_EQ(*first.out(), nullptr);
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 match"}));
}

TEST_F(SlotTest, TakesAReferenceOverAndHandsItBack) {
    Slot filled;
    fill(filled);
    sd_bus_slot* const raw = filled.release();
    EXPECT_TRUE(filled == nullptr);
    Slot slot(raw);
    EXPECT_TRUE(slot.get() == raw && &*slot == raw && slot != nullptr);
    slot.reset(nullptr);
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match"}));
}

TEST_F(SlotTest, KeepsSupersededSlotsUntilTheyAreReleasedInTheirOrder) {
    SupersededSlots superseded;
    Slot slot;
    superseded.keep(slot);
    fill(slot);
    superseded.keep(slot);
    EXPECT_FALSE(slot);
    fill(slot);
    superseded.keep(slot);
    fill(slot);
    EXPECT_EQ(bus.take_journal(), Journal{});
    superseded.release();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match", "release #2 match"}));
    superseded.release();
    slot.reset();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #3 match"}));
}

TEST_F(SlotTest, ReleasesSupersededSlotsWhenTheirListIsDestroyed) {
    {
        SupersededSlots superseded;
        Slot slot;
        fill(slot);
        superseded.keep(slot);
    }
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 match"}));
}

/// An object with a member for sd-bus to call.
struct Listener {
    int on_reply(sd_bus_message* message, sd_bus_error* error) {
        seen_message = message;
        seen_error = error;
        return -7;
    }
    sd_bus_message* seen_message = nullptr;
    sd_bus_error* seen_error = nullptr;
};

TEST(CallbackTest, CallsTheMemberOfTheObjectThatIsTheUserdata) {
    using Call = Fenwa::Callback<&Listener::on_reply>;
    static_assert(noexcept(Call::call(nullptr, nullptr, nullptr)),
                  "nothing may be thrown into sd-bus");
    Listener listener;
    auto* const message = reinterpret_cast<sd_bus_message*>(&listener.seen_message);
    sd_bus_error error = SD_BUS_ERROR_NULL;
    EXPECT_EQ(Call::call(message, &listener, &error), -7);
    EXPECT_EQ(listener.seen_message, message);
    EXPECT_EQ(listener.seen_error, &error);
}

TEST(CallbackTest, GivesTheMemberAsManyArgumentsAsItTakes) {
    struct Counter {
        void on_nothing() { ++calls; }
        int on_message(sd_bus_message* message) { return message == nullptr ? ++calls : -1; }
        int calls = 0;
    } counter;
    EXPECT_EQ(Fenwa::Callback<&Counter::on_nothing>::call(nullptr, &counter, nullptr), 0);
    EXPECT_EQ(Fenwa::Callback<&Counter::on_message>::call(nullptr, &counter, nullptr), 2);
}

}  // namespace
