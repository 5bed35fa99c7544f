#include "framework/algo-tools/connection_tools.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "fenwa/callback.hpp"
#include "fenwa/sdbus_error.hpp"
#include "fenwa/slot.hpp"

namespace {

using Fenwa::ConnectionTools;
using Fenwa::SDBusError;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

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

TEST(ConnectionToolsTest, FailWithoutAnOpenBusAndLeaveTheReplyAlone) {
    sd_bus* unopened = nullptr;
    ASSERT_GE(sd_bus_new(&unopened), 0);
    const Fenwa::Handle<sd_bus, sd_bus_unref> owner(unopened);
    int nowhere = 0;
    auto* reply = reinterpret_cast<sd_bus_message*>(&nowhere);
    for (sd_bus* const bus : {static_cast<sd_bus*>(nullptr), unopened}) {
        ConnectionTools tools(bus);
        EXPECT_EQ(tools.get_bus(), bus);
        const auto error =
            error_of([&] { tools.call_method("a.b", "/a", "a.b", "C", &reply, "i", 5); });
        EXPECT_STREQ(error.what(), "System.Error.ENOTCONN: Transport endpoint is not connected");
        EXPECT_EQ(error.code(), -ENOTCONN);
    }
    ConnectionTools tools(nullptr);
    const auto error = error_of([&] { tools.get_property("a.b", "/a", "a.b", "P", &reply, "d"); });
    EXPECT_STREQ(error.what(), "org.freedesktop.DBus.Error.InvalidArgs: Invalid argument");
    EXPECT_EQ(error.code(), -EINVAL);
    EXPECT_EQ(reply, reinterpret_cast<sd_bus_message*>(&nowhere));
}

/// A connection to a peer that answers calls of its own accord: "Echo" with the call's arguments,
/// whatever else with nothing, unless it is silent.
class AnsweringPeerTest : public testing::Test {
  protected:
    AnsweringPeerTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()),
                  0);
        calling = open(ends[0]);
        served = open(ends[1]);
        EXPECT_GE(sd_bus_set_server(served, 1, sd_id128_t{}), 0);
        EXPECT_GE(sd_bus_add_filter(served, nullptr,
                                    Fenwa::Callback<&AnsweringPeerTest::answer>::call, this),
                  0);
        EXPECT_GE(sd_bus_start(served), 0);
        EXPECT_GE(sd_bus_start(calling), 0);
        peer = std::thread([this] {
            while (!over) {
                if (sd_bus_process(served, nullptr) == 0)
                    (void)sd_bus_wait(served, 10'000);
            }
        });
    }
    ~AnsweringPeerTest() override {
        over = true;
        peer.join();
        sd_bus_close_unref(calling);
        sd_bus_close_unref(served);
    }

    static sd_bus* open(int end) {
        sd_bus* bus = nullptr;
        EXPECT_GE(sd_bus_new(&bus), 0);
        EXPECT_GE(sd_bus_set_fd(bus, end, end), 0);
        return bus;
    }

    int answer(sd_bus_message* call) {
        if (silent)
            return 1;
        Fenwa::Message reply;
        int r = sd_bus_message_new_method_return(call, reply.out());
        if (r >= 0 && std::string(sd_bus_message_get_member(call)) == "Echo")
            r = sd_bus_message_copy(reply.get(), call, 1);
        if (r >= 0)
            r = sd_bus_send(nullptr, reply.get(), nullptr);
        return r < 0 ? r : 1;
    }

    sd_bus* calling = nullptr;
    sd_bus* served = nullptr;
    std::atomic<bool> silent = false;
    std::atomic<bool> over = false;
    std::thread peer;
};

TEST_F(AnsweringPeerTest, IsGivenTheArgumentsAndTheCallerTheReply) {
    ConnectionTools tools(calling);
    Fenwa::Message reply;
    tools.call_method("a.b", "/a", "a.b", "Echo", reply.out(), "isd", 5, "main", 0.5);
    ASSERT_TRUE(reply);
    std::int32_t number = 0;
    const char* text = nullptr;
    double fraction = 0.0;
    EXPECT_EQ(sd_bus_message_read(reply.get(), "isd", &number, &text, &fraction), 1);
    EXPECT_EQ(number, 5);
    EXPECT_STREQ(text, "main");
    EXPECT_EQ(fraction, 0.5);
    EXPECT_NO_THROW(tools.call_method("a.b", "/a", "a.b", "Echo", nullptr, "i", 5));
    EXPECT_NO_THROW(tools.call_method("a.b", "/a", "a.b", "Other", nullptr, nullptr));
}

TEST_F(AnsweringPeerTest, IsWaitedForAsLongAsTheConnectionSays) {
    ConnectionTools tools(calling);
    silent = true;
    for (const std::chrono::milliseconds limit : {50ms, 300ms}) {
        EXPECT_GE(
            sd_bus_set_method_call_timeout(
                calling, static_cast<std::uint64_t>(std::chrono::microseconds(limit).count())),
            0);
        const auto begin = std::chrono::steady_clock::now();
        const auto error =
            error_of([&] { tools.call_method("a.b", "/a", "a.b", "Echo", nullptr, "i", 5); });
        EXPECT_EQ(error.code(), -ETIMEDOUT);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, limit);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, limit + 10s);
    }
}

}  // namespace
