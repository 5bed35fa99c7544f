#include "tests/support/bus_messages.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <system_error>

namespace {

class MessagesTest : public testing::Test {
  protected:
    support::Messages messages;
};

TEST_F(MessagesTest, MakesReadableReplies) {
    const auto reply = messages.reply("is", 3, "main");
    std::int32_t id = 0;
    const char* name = nullptr;
    EXPECT_EQ(sd_bus_message_is_method_error(reply, nullptr), 0);
    EXPECT_EQ(sd_bus_message_read(reply, "is", &id, &name), 1);
    EXPECT_EQ(id, 3);
    EXPECT_STREQ(name, "main");
}

TEST_F(MessagesTest, MakesErrorsWithTheirTextInTheBody) {
    const auto error = messages.error("com.example.Error", "no luck");
    const char* text = nullptr;
    EXPECT_EQ(sd_bus_message_is_method_error(error, "com.example.Error"), 1);
    EXPECT_EQ(sd_bus_message_read(error, "s", &text), 1);
    EXPECT_STREQ(text, "no luck");
}

TEST_F(MessagesTest, MakesErrorsWithAnEmptyOrAnOddBody) {
    const char* text = nullptr;
    const auto empty = messages.error("com.example.Error", nullptr);
    EXPECT_EQ(sd_bus_message_is_method_error(empty, nullptr), 1);
    EXPECT_EQ(sd_bus_message_read(empty, "s", &text), -ENXIO);
    const auto odd = messages.error_with_body("com.example.Error", "i", 5);
    EXPECT_EQ(sd_bus_message_is_method_error(odd, nullptr), 1);
    EXPECT_EQ(sd_bus_message_read(odd, "s", &text), -ENXIO);
}

TEST_F(MessagesTest, MakesSignals) {
    const auto signal = messages.signal("/com/example", "com.example.I", "Changed", "d", 1.5);
    EXPECT_EQ(sd_bus_message_is_signal(signal, "com.example.I", "Changed"), 1);
    EXPECT_STREQ(sd_bus_message_get_path(signal), "/com/example");
}

TEST_F(MessagesTest, RefusesWhatSdBusRefuses) {
    EXPECT_THROW((void)messages.signal("not a path", "com.example.I", "Changed", ""),
                 std::system_error);
}

}  // namespace
