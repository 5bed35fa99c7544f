#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/sdbus_interception.hpp"

namespace {

using Journal = std::vector<std::string>;

using support::denied;

class BlockingCallInterceptionTest : public testing::Test {
  protected:
    static int call(sd_bus_error* error, sd_bus_message** reply, sd_bus* bus = nullptr) {
        return sd_bus_call_method(bus, "a.b", "/a", "a.c", "Do", error, reply, "i", 5);
    }

    support::Messages messages;
};

TEST_F(BlockingCallInterceptionTest, ReachesSdBusItselfWhenThereIsNone) {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    EXPECT_EQ(call(&error, nullptr), -EINVAL);
    EXPECT_EQ(sd_bus_error_is_set(&error), 1);
    sd_bus_error_free(&error);
    EXPECT_EQ(sd_bus_error_is_set(&error), 0);
}

TEST_F(BlockingCallInterceptionTest, EndsACallAsForeseen) {
    support::Interception bus;
    bus.end_next_call(-EACCES, denied);
    bus.end_next_call(0, SD_BUS_ERROR_NULL, messages.reply("i", 3));
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    EXPECT_EQ(call(&error, &reply, messages.bus()), -EACCES);
    EXPECT_STREQ(error.name, denied.name);
    EXPECT_STREQ(error.message, "not you");
    EXPECT_EQ(reply, nullptr);
    sd_bus_error_free(&error);
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().callback, nullptr);
    EXPECT_EQ(call(&error, &reply), 0);
    EXPECT_EQ(sd_bus_error_is_set(&error), 0);
    std::int32_t value = 0;
    EXPECT_EQ(sd_bus_message_read(reply, "i", &value), 1);
    EXPECT_EQ(value, 3);
    EXPECT_EQ(bus.replies_held(), 1U);
    sd_bus_message_unref(reply);
    EXPECT_EQ(bus.replies_held(), 0U);
    EXPECT_EQ(bus.take_journal(), Journal(2, "blocking call a.b /a a.c Do(i 5)"));
}

TEST_F(BlockingCallInterceptionTest, FailsATestThatDoesNotForeseeACallOrForeseesTooMuch) {
    EXPECT_NONFATAL_FAILURE(
        {
            const support::Interception bus;
            EXPECT_EQ(call(nullptr, nullptr), -ENOTCONN);
        },
        "unexpected blocking call a.b /a a.c Do(i 5)");
    EXPECT_NONFATAL_FAILURE(
        {
            support::Interception bus;
            bus.end_next_call(0);
        },
        "1 foreseen blocking calls are missing");
}

TEST_F(BlockingCallInterceptionTest, FailsATestWhoseBlockKeepsSomething) {
    sd_bus_message* reply = nullptr;
    EXPECT_NONFATAL_FAILURE(
        {
            support::Interception bus;
            bus.end_next_call(0, SD_BUS_ERROR_NULL, messages.reply(""));
            EXPECT_EQ(call(nullptr, &reply), 0);
            (void)bus.take_journal();
        },
        "replies kept");
    sd_bus_message_unref(reply);
    sd_bus_error error = SD_BUS_ERROR_NULL;
    EXPECT_NONFATAL_FAILURE(
        {
            support::Interception bus;
            bus.end_next_call(-EACCES, denied);
            EXPECT_EQ(call(&error, nullptr), -EACCES);
            (void)bus.take_journal();
        },
        "an error structure was not freed");
    sd_bus_error_free(&error);
}

TEST_F(BlockingCallInterceptionTest, FailsATestWhoseBlockReusesAnErrorStructure) {
    support::Interception bus;
    bus.end_next_call(-EACCES, denied);
    sd_bus_error error = denied;
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ(call(&error, nullptr), -EACCES), "not a fresh one");
    sd_bus_error_free(&error);
    (void)bus.take_journal();
}

}  // namespace
