#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/bus_messages.hpp"
#include "tests/support/sdbus_interception.hpp"

namespace {

using support::MessageFunction;
using Journal = std::vector<std::string>;

class MessageInterceptionTest : public testing::Test {
  protected:
    support::Message question(const char* types = "", double value = 0.0) {
        return messages.call("/com/example/Peer", "com.example.Peer", "Ask", types, value);
    }

    support::Messages messages;
};

TEST_F(MessageInterceptionTest, ReachesSdBusItselfWhenThereIsNone) {
    double value = 0.0;
    EXPECT_EQ(sd_bus_message_read(question("d", 2.5), "d", &value), 1);
    EXPECT_EQ(value, 2.5);
    EXPECT_EQ(sd_bus_message_read_basic(question("d", 2.5), 'd', &value), 1);
    EXPECT_EQ(sd_bus_message_skip(question("d", 2.5), "s"), -ENXIO);
    EXPECT_EQ(sd_bus_message_enter_container(question(), 'a', "s"), -ENXIO);
    EXPECT_EQ(sd_bus_message_exit_container(question()), -ENXIO);
    EXPECT_EQ(sd_bus_reply_method_return(messages.reply(""), ""), -EINVAL);
    EXPECT_EQ(sd_bus_reply_method_return(question(), ""), 1);
}

TEST_F(MessageInterceptionTest, RecordsAnswersWithWhatTheyComeTo) {
    support::Interception bus;
    EXPECT_EQ(bus.answered(), nullptr);
    const auto call = question();
    EXPECT_EQ(sd_bus_reply_method_return(call, "id", 5, 0.5), 1);
    EXPECT_EQ(bus.answered(), call);
    EXPECT_EQ(sd_bus_reply_method_return(call, ""), 1);
    const auto signal = messages.signal("/com/example", "com.example.I", "Changed", "");
    EXPECT_EQ(sd_bus_reply_method_return(signal, nullptr), -EINVAL);
    EXPECT_EQ(bus.answered(), signal);
    EXPECT_EQ(sd_bus_reply_method_return(messages.error("com.example.E", "no"), nullptr), -EINVAL);
    EXPECT_EQ(sd_bus_reply_method_return(nullptr, nullptr), -EINVAL);
    EXPECT_EQ(bus.take_journal(),
              (Journal{"answer \"id\"(i 5, d 0.5) = 1", "answer \"\"() = 1", "answer null() = -22",
                       "answer null() = -22", "answer null() = -22"}));
}

TEST_F(MessageInterceptionTest, ChangesResultsOfWhatHasBeenDone) {
    support::Interception bus;
    bus.change_results(MessageFunction::read, {0});
    bus.change_results(MessageFunction::read_basic, {-EPERM});
    bus.change_results(MessageFunction::skip, {5});
    bus.change_results(MessageFunction::enter_container, {6});
    bus.change_results(MessageFunction::exit_container, {7});
    const auto call =
        messages.signal("/com/example", "com.example.I", "Changed", "ddasi", 2.5, 3.5, 0U, 4);
    double value = 0.0;
    EXPECT_EQ(sd_bus_message_read(call, "d", &value), 0);
    EXPECT_EQ(value, 2.5);
    EXPECT_EQ(sd_bus_message_read_basic(call, 'd', &value), -EPERM);
    EXPECT_EQ(value, 3.5);
    EXPECT_EQ(sd_bus_message_enter_container(call, 'a', "s"), 6);
    EXPECT_EQ(sd_bus_message_exit_container(call), 7);
    EXPECT_EQ(sd_bus_message_skip(call, "i"), 5);
    EXPECT_EQ(sd_bus_message_read(call, "i", &value), -ENXIO) << "behind the last one";
}

TEST_F(MessageInterceptionTest, GivesTheResultsThatATestHasMadeUp) {
    support::Interception bus;
    bus.make_up(MessageFunction::read, {std::nullopt, 0, -EIO});
    bus.make_up(MessageFunction::read_basic, {-EINTR});
    bus.make_up(MessageFunction::skip, {-EBADMSG});
    bus.make_up(MessageFunction::enter_container, {0});
    bus.make_up(MessageFunction::exit_container, {-EBUSY});
    bus.make_up(MessageFunction::reply_method_return, {-ENOTCONN});
    const auto call = question("d", 2.5);
    double value = 0.0;
    EXPECT_EQ(sd_bus_message_read(call, "d", &value), 1);
    EXPECT_EQ(sd_bus_message_read(call, "d", &value), 0);
    EXPECT_EQ(sd_bus_message_read(call, "d", &value), -EIO);
    EXPECT_EQ(sd_bus_message_read(call, "d", &value), -ENXIO);
    EXPECT_EQ(sd_bus_message_read_basic(call, 'd', &value), -EINTR);
    EXPECT_EQ(sd_bus_message_skip(call, "d"), -EBADMSG);
    EXPECT_EQ(sd_bus_message_enter_container(call, 'a', "s"), 0);
    EXPECT_EQ(sd_bus_message_exit_container(call), -EBUSY);
    EXPECT_EQ(sd_bus_reply_method_return(call, ""), -ENOTCONN);
    EXPECT_EQ(bus.take_journal(), (Journal{"answer \"\"() = -107"}));
}

TEST_F(MessageInterceptionTest, FailsATestThatLeavesSomethingBehind) {
    EXPECT_NONFATAL_FAILURE(
        {
            support::Interception bus;
            bus.make_up(MessageFunction::skip, {0});
        },
        "made up for nobody: a result of function 1");
    EXPECT_NONFATAL_FAILURE(
        {
            const support::Interception bus;
            EXPECT_EQ(sd_bus_reply_method_return(nullptr, nullptr), -EINVAL);
        },
        "nobody looked at: answer null() = -22");
}

}  // namespace
