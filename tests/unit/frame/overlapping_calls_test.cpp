#include <gtest/gtest.h>

#include <cerrno>

#include "src/frame/overlapping_calls.hpp"
#include "tests/support/sdbus_interception.hpp"

namespace {

using Journal = std::vector<std::string>;

/// The field of the newest call, and the calls that it has replaced.
class OverlappingCallsTest : public testing::Test {
  protected:
    /// Makes the next call. @returns the releases before it.
    Journal call(int result = 1) {
        calls.make_room(slot);
        EXPECT_FALSE(slot);
        Journal released = bus.take_journal();
        bus.answer_next({result});
        EXPECT_EQ(calls.sent(sd_bus_call_method_async(nullptr, slot.out(), "a.b", "/a", "a.c", "Do",
                                                      nullptr, nullptr, "")),
                  result);
        (void)bus.take_journal();
        return released;
    }
    /// Answers one call. @returns the releases.
    Journal answer() {
        calls.answered();
        return bus.take_journal();
    }

    support::Interception bus;
    Fenwa::Slot slot;
    blocks::OverlappingCalls calls;
};

TEST_F(OverlappingCallsTest, DropAnAnsweredCallForTheNext) {
    EXPECT_EQ(call(), Journal{});
    EXPECT_EQ(answer(), Journal{});
    EXPECT_TRUE(slot) << "the newest call stays in its field";
    EXPECT_EQ(call(), (Journal{"release #1 Do"}));
    EXPECT_EQ(answer(), Journal{});
    EXPECT_EQ(call(), (Journal{"release #2 Do"}));
}

TEST_F(OverlappingCallsTest, KeepReplacedCallsUntilEveryCallHasBeenAnswered) {
    for (int number = 0; number < 3; ++number)
        EXPECT_EQ(call(), Journal{});
    EXPECT_EQ(answer(), Journal{});
    EXPECT_EQ(answer(), Journal{});
    EXPECT_EQ(answer(), (Journal{"release #1 Do", "release #2 Do"}));
    EXPECT_EQ(call(), (Journal{"release #3 Do"}));
}

TEST_F(OverlappingCallsTest, DoNotWaitForACallThatCouldNotBeSent) {
    EXPECT_EQ(call(-EPERM), Journal{});
    EXPECT_FALSE(slot);
    EXPECT_EQ(call(), Journal{});
    EXPECT_EQ(call(-EPERM), Journal{}) << "an unanswered call is not dropped";
    EXPECT_EQ(answer(), (Journal{"release #2 Do"}));
}

TEST_F(OverlappingCallsTest, CountACallSentWithAResultOfZero) {
    EXPECT_EQ(call(0), Journal{});
    EXPECT_EQ(call(), Journal{});
    EXPECT_EQ(answer(), Journal{});
    EXPECT_EQ(answer(), (Journal{"release #1 Do"}));
}

TEST_F(OverlappingCallsTest, TakeAnAnswerToNoCallForNothing) {
    EXPECT_EQ(answer(), Journal{});
    EXPECT_EQ(call(), Journal{});
    EXPECT_EQ(call(), Journal{}) << "an unanswered call is not dropped";
}

TEST_F(OverlappingCallsTest, BeginAnewOnceTheyAreReleased) {
    EXPECT_EQ(call(), Journal{});
    EXPECT_EQ(call(), Journal{});
    calls.release();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 Do"})) << "the field is its owner's";
    EXPECT_EQ(call(), (Journal{"release #2 Do"}));
    EXPECT_EQ(call(), Journal{});
    EXPECT_EQ(answer(), Journal{});
    EXPECT_EQ(answer(), (Journal{"release #3 Do"}));
}

TEST(OverlappingCallsDestructionTest, ReleasesWhatIsUnanswered) {
    support::Interception bus;
    {
        Fenwa::Slot slot;
        blocks::OverlappingCalls calls;
        for (int number = 0; number < 2; ++number) {
            calls.make_room(slot);
            calls.sent(sd_bus_add_match_async(nullptr, slot.out(), "r", nullptr, nullptr, nullptr));
        }
    }
    EXPECT_EQ(bus.take_journal(),
              (Journal{"match r", "match r", "release #1 match", "release #2 match"}));
}

}  // namespace
