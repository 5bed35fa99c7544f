#include "tests/support/fake_tools.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "fenwa/sdbus_error.hpp"
#include "src/frame/sdbus_handle.hpp"

namespace {

using blocks::Message;
using Journal = std::vector<std::string>;

class FakeToolsTest : public testing::Test {
  protected:
    void ask(sd_bus_message** reply) {
        tools.call_method("a.b", "/a", "a.c", "Ask", reply, "is", 5, "x");
    }
    void expect_asked() {
        EXPECT_EQ(bus.take_journal(), (Journal{"blocking call a.b /a a.c Ask(i 5, s \"x\")"}));
    }

    support::Messages messages;
    support::Interception bus;
    support::FakeTools tools{messages.bus(), bus};
};

TEST_F(FakeToolsTest, HandOutTheConnection) {
    EXPECT_EQ(tools.get_bus(), messages.bus());
}

TEST_F(FakeToolsTest, GiveTheForeseenRepliesInTheirOrder) {
    tools.reply_next(messages.reply("i", 1));
    tools.reply_next(messages.reply("i", 2));
    for (const std::int32_t expected : {1, 2}) {
        Message reply;
        ask(reply.out());
        std::int32_t value = 0;
        EXPECT_EQ(sd_bus_message_read(reply.get(), "i", &value), 1);
        EXPECT_EQ(value, expected);
        expect_asked();
    }
}

TEST_F(FakeToolsTest, RenderACallWithoutArguments) {
    tools.return_next();
    tools.call_method(nullptr, "/a", "a.c", "Ask", nullptr, nullptr);
    EXPECT_EQ(bus.take_journal(), (Journal{"blocking call null /a a.c Ask()"}));
}

TEST_F(FakeToolsTest, GiveForeseenPropertiesToo) {
    tools.reply_next(messages.reply("d", 0.5));
    Message reply;
    tools.get_property("a.b", "/a", "a.c", "Level", reply.out(), "d");
    double value = 0;
    EXPECT_EQ(sd_bus_message_read(reply.get(), "d", &value), 1);
    EXPECT_EQ(value, 0.5);
    EXPECT_EQ(bus.take_journal(), (Journal{"blocking read a.b /a a.c Level as d"}));
}

TEST_F(FakeToolsTest, LeaveTheReplyAloneWhenThereIsNone) {
    tools.return_next();
    Message reply;
    ask(reply.out());
    EXPECT_FALSE(reply);
    expect_asked();
}

TEST_F(FakeToolsTest, ThrowAwayAReplyThatNobodyWants) {
    tools.reply_next(messages.reply("i", 1));
    ask(nullptr);
    expect_asked();
}

TEST_F(FakeToolsTest, ThrowTheForeseenException) {
    tools.throw_next(Fenwa::SDBusError("a.Error", "no luck", -EIO));
    tools.throw_next(std::out_of_range("something else"));
    Message reply;
    try {
        ask(reply.out());
        FAIL() << "nothing thrown";
    } catch (const Fenwa::SDBusError& error) {
        EXPECT_STREQ(error.what(), "a.Error: no luck");
    }
    EXPECT_THROW(tools.get_property("a.b", "/a", "a.c", "Level", reply.out(), "d"),
                 std::out_of_range);
    EXPECT_FALSE(reply);
    EXPECT_EQ(bus.take_journal().size(), 2U);
}

TEST_F(FakeToolsTest, ThrowAfterAReplyToo) {
    tools.throw_next(std::out_of_range("something else"), messages.reply("i", 1));
    Message reply;
    EXPECT_THROW(ask(reply.out()), std::out_of_range);
    EXPECT_TRUE(reply);
    expect_asked();
}

TEST_F(FakeToolsTest, CountTheRepliesThatAreKept) {
    sd_bus_message* reply = nullptr;
    tools.reply_next(messages.reply("i", 1));
    ask(&reply);
    expect_asked();
    EXPECT_EQ(bus.replies_held(), 1U);
    sd_bus_message_unref(reply);
    EXPECT_EQ(bus.replies_held(), 0U);
}

TEST_F(FakeToolsTest, FailATestThatDoesNotForeseeAnOperation) {
    Message reply;
    EXPECT_NONFATAL_FAILURE(ask(reply.out()), "unexpected blocking call a.b /a a.c Ask(i 5, s");
    EXPECT_NONFATAL_FAILURE(tools.get_property("a.b", "/a", "a.c", "Level", reply.out(), "d"),
                            "unexpected blocking read a.b /a a.c Level as d");
    EXPECT_FALSE(reply);
}

TEST_F(FakeToolsTest, FailATestThatForeseesTooMuch) {
    EXPECT_NONFATAL_FAILURE(
        {
            support::FakeTools others(messages.bus(), bus);
            others.return_next();
        },
        "1 foreseen blocking operations are missing");
}

TEST_F(FakeToolsTest, FailATestWhoseBlockWouldLoseAnEarlierReply) {
    tools.reply_next(messages.reply("i", 1));
    const auto earlier = messages.reply("i", 0);
    sd_bus_message* reply = earlier;
    EXPECT_NONFATAL_FAILURE(ask(&reply), "the reply is written over what stood there");
    sd_bus_message_unref(reply);
    expect_asked();
}

}  // namespace
