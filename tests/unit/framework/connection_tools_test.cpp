#include "framework/algo-tools/connection_tools.hpp"

#include <gtest/gtest.h>

#include <cerrno>

#include "fenwa/sdbus_error.hpp"

namespace {

using Fenwa::ConnectionTools;
using Fenwa::SDBusError;

/// The error that the call ends in.
template <class Call>
SDBusError error_of(Call call) {
    try {
        call();
    } catch (const SDBusError& error) {
        return error;
    }
    ADD_FAILURE() << "no SDBusError";
    return {"", "", 0};
}

class WithoutABusTest : public testing::Test {
  protected:
    ConnectionTools tools{nullptr};
    int nowhere = 0;
    sd_bus_message* reply = reinterpret_cast<sd_bus_message*>(&nowhere);
};

TEST_F(WithoutABusTest, HasNone) {
    EXPECT_EQ(tools.get_bus(), nullptr);
}

TEST_F(WithoutABusTest, FailsEveryCallAndLeavesTheReplyAlone) {
    const auto error =
        error_of([&] { tools.call_method("a.b", "/a", "a.b", "C", &reply, "i", 5); });
    EXPECT_STREQ(error.what(), "System.Error.ENOTCONN: Transport endpoint is not connected");
    EXPECT_EQ(error.code(), -ENOTCONN);
    EXPECT_EQ(reply, reinterpret_cast<sd_bus_message*>(&nowhere));
}

TEST_F(WithoutABusTest, FailsEveryPropertyAndLeavesTheReplyAlone) {
    const auto error = error_of([&] { tools.get_property("a.b", "/a", "a.b", "P", &reply, "d"); });
    EXPECT_STREQ(error.what(), "org.freedesktop.DBus.Error.InvalidArgs: Invalid argument");
    EXPECT_EQ(error.code(), -EINVAL);
    EXPECT_EQ(reply, reinterpret_cast<sd_bus_message*>(&nowhere));
}

/// A connection that was never opened.
class UnopenedBusTest : public testing::Test {
  protected:
    UnopenedBusTest() { EXPECT_GE(sd_bus_new(&bus), 0); }
    ~UnopenedBusTest() override { sd_bus_unref(bus); }

    sd_bus* bus = nullptr;
};

TEST_F(UnopenedBusTest, IsHandedOutAsItIs) {
    EXPECT_EQ(ConnectionTools(bus).get_bus(), bus);
}

TEST_F(UnopenedBusTest, FailsACall) {
    ConnectionTools tools(bus);
    const auto error =
        error_of([&] { tools.call_method("a.b", "/a", "a.b", "C", nullptr, nullptr); });
    EXPECT_EQ(error.code(), -ENOTCONN);
}

}  // namespace
