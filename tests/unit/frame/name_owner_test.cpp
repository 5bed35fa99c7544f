#include "src/frame/name_owner.hpp"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/bus_messages.hpp"
#include "tests/support/log_recorder.hpp"

namespace {

using Kind = blocks::OwnerAnswer::Kind;
using Lines = std::vector<std::string>;

class NameOwnerTest : public testing::Test {
  protected:
    /// A NameOwnerChanged signal with this body.
    template <class... Values>
    support::Message owner_change(const char* types, Values... values) {
        return messages.signal("/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged",
                               types, values...);
    }

    support::LogRecorder log;
    support::Messages messages;
};

TEST_F(NameOwnerTest, ListensToTheOwnerChangesOfEveryNameFromAnySender) {
    EXPECT_STREQ(blocks::owner_change_rule,
                 "type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'");
}

TEST_F(NameOwnerTest, SaysWhyTheMatchCouldNotBeSent) {
    blocks::log_owner_match_failure(-ENOMEM);
    EXPECT_EQ(log.take(),
              (Lines{"1 Failed to add match for NameOwnerChanged: Cannot allocate memory"}));
}

TEST_F(NameOwnerTest, TakesAnyReplyForAnInstalledMatch) {
    EXPECT_TRUE(blocks::owner_match_installed(messages.reply("")));
    EXPECT_TRUE(blocks::owner_match_installed(messages.reply("i", 5)));
}

TEST_F(NameOwnerTest, LogsARefusedMatch) {
    EXPECT_FALSE(blocks::owner_match_installed(
        messages.error("org.freedesktop.DBus.Error.LimitsExceeded", "too many")));
    EXPECT_FALSE(blocks::owner_match_installed(messages.error("com.example.E", nullptr)));
    EXPECT_EQ(log.take(), (Lines{"1 Error when adding match for NameOwnerChanged: too many",
                                 "1 Error when adding match for NameOwnerChanged: unknown"}));
}

TEST_F(NameOwnerTest, KnowsAnOwnerFromAnEmptyOne) {
    const auto owned = blocks::read_owner_answer(messages.reply("s", ":1.5"));
    EXPECT_EQ(owned.kind, Kind::owned);
    EXPECT_EQ(owned.result, 1);
    const auto empty = blocks::read_owner_answer(messages.reply("s", ""));
    EXPECT_EQ(empty.kind, Kind::not_owned);
    EXPECT_EQ(empty.result, 1);
}

TEST_F(NameOwnerTest, TakesNameHasNoOwnerForAnAnswerWithoutReadingIt) {
    const auto answer = blocks::read_owner_answer(
        messages.error("org.freedesktop.DBus.Error.NameHasNoOwner", "no such name"));
    EXPECT_EQ(answer.kind, Kind::not_owned);
    EXPECT_EQ(answer.result, 0);
}

TEST_F(NameOwnerTest, LogsARefusedQuestion) {
    const auto answer = blocks::read_owner_answer(
        messages.error("org.freedesktop.DBus.Error.AccessDenied", "not you"));
    EXPECT_EQ(answer.kind, Kind::refused);
    EXPECT_EQ(answer.result, 1);
    const auto silent = blocks::read_owner_answer(messages.error("com.example.E", nullptr));
    EXPECT_EQ(silent.kind, Kind::refused);
    EXPECT_EQ(silent.result, -ENXIO);
    EXPECT_EQ(log.take(), (Lines{"1 Error when retrieving NameOwner: not you",
                                 "1 Error when retrieving NameOwner: unknown"}));
}

TEST_F(NameOwnerTest, WarnsOfAnAnswerWithoutAString) {
    const auto answer = blocks::read_owner_answer(messages.reply("i", 5));
    EXPECT_EQ(answer.kind, Kind::unreadable);
    EXPECT_EQ(answer.result, -ENXIO);
    EXPECT_EQ(log.take(), (Lines{"2 check_name_owner_callback failed to parse message: "
                                 "No such device or address"}));
}

TEST_F(NameOwnerTest, ReadsAnOwnerChange) {
    const auto signal = owner_change("sss", "com.example.A", ":1.1", ":1.2");
    blocks::OwnerChange change;
    EXPECT_EQ(blocks::read_owner_change(signal, change), 1);
    EXPECT_STREQ(change.name, "com.example.A");
    EXPECT_STREQ(change.old_owner, ":1.1");
    EXPECT_STREQ(change.new_owner, ":1.2");
}

TEST_F(NameOwnerTest, WarnsOfAnUnreadableOwnerChange) {
    blocks::OwnerChange change;
    EXPECT_EQ(blocks::read_owner_change(owner_change("ss", "com.example.A", ":1.1"), change),
              -ENXIO);
    EXPECT_EQ(log.take(),
              (Lines{"2 NameOwnerChanged failed to parse message: No such device or address"}));
}

TEST_F(NameOwnerTest, TakesAnOwnerChange) {
    const auto signal = owner_change("sss", "com.example.A", "", ":1.2");
    blocks::OwnerChange change;
    EXPECT_EQ(blocks::take_owner_change(signal, change), 1);
    EXPECT_STREQ(change.name, "com.example.A");
    EXPECT_STREQ(change.old_owner, "");
    EXPECT_STREQ(change.new_owner, ":1.2");
}

TEST_F(NameOwnerTest, TakesNothingFromAnUnreadableOwnerChange) {
    blocks::OwnerChange change;
    EXPECT_EQ(blocks::take_owner_change(owner_change("u", 5U), change), -ENXIO);
    EXPECT_EQ(log.take(),
              (Lines{"2 NameOwnerChanged failed to parse message: No such device or address"}));
}

TEST_F(NameOwnerTest, RefusesAnErrorWhereAnOwnerChangeShouldBe) {
    blocks::OwnerChange change;
    EXPECT_EQ(blocks::take_owner_change(messages.error("com.example.E", "not you"), change), -1);
    EXPECT_EQ(blocks::take_owner_change(messages.error("com.example.E", nullptr), change), -1);
    EXPECT_EQ(
        blocks::take_owner_change(
            messages.error_with_body("com.example.E", "sss", "com.example.A", "", ":1.2"), change),
        -1);
    EXPECT_EQ(change.name, nullptr);
    EXPECT_EQ(log.take(), (Lines{"1 Error when handling NameOwnerChanged: not you",
                                 "1 Error when handling NameOwnerChanged: unknown",
                                 "1 Error when handling NameOwnerChanged: com.example.A"}));
}

}  // namespace
