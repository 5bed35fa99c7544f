#include "host/runtime/block_calls.hpp"

#include <gtest/gtest.h>

namespace host {
namespace {

using Words = std::vector<std::string>;

constexpr std::uint64_t second = 1'000'000;
constexpr sd_bus_error unknown_sensor =
    SD_BUS_ERROR_MAKE_CONST("com.example.Error.UnknownSensor", "No sensor is named 'mian'");
constexpr sd_bus_error no_owner =
    SD_BUS_ERROR_MAKE_CONST(SD_BUS_ERROR_SERVICE_UNKNOWN, "nobody owns it");

class BlockCallsTest : public testing::Test {
  protected:
    BlockCallsTest() {
        calls_.on_news([this](common::Severity severity, const std::string& block,
                              const std::string& news) {
            news_.push_back((severity == common::Severity::warning ? "! " : "  ") + block + news);
        });
    }

    /// A call of block "b", and its end.
    void call(const std::string& member, const sd_bus_error* error, std::uint64_t now = second) {
        const ServiceCall sent{"com.example.X", member, now};
        calls_.sent("b", sent);
        calls_.ended("b", sent, error, now + 1);
    }
    Words news() { return std::exchange(news_, {}); }

    BlockCalls calls_;
    Words news_;
};

TEST_F(BlockCallsTest, TellABeginAndAnEndOfARefusalAndNothingOfWhatIsNormal) {
    call("Ask", nullptr);
    EXPECT_EQ(news(), Words{});
    call("Ask", &unknown_sensor);
    EXPECT_EQ(news(), (Words{"! b: Ask was refused by com.example.X: UnknownSensor: No sensor is "
                             "named 'mian'"}));
    call("Ask", &unknown_sensor);
    call("Other", nullptr);
    EXPECT_EQ(news(), Words{});
    call("Ask", nullptr);
    EXPECT_EQ(news(), (Words{"  b: Ask is answered by com.example.X now"}));
}

TEST_F(BlockCallsTest, TellOfAServiceThatNobodyOwnsUntilItHasAnOwner) {
    EXPECT_FALSE(calls_.is_anyone_waiting());
    call("Ask", &no_owner);
    EXPECT_EQ(news(), (Words{"! b waits for com.example.X, which nobody owns"}));
    calls_.owner_told("b", "com.example.X", false, second);
    EXPECT_EQ(news(), Words{});
    EXPECT_TRUE(calls_.is_anyone_waiting());
    calls_.owner_appeared("com.example.Y", second);
    EXPECT_EQ(news(), Words{});
    calls_.owner_appeared("com.example.X", second);
    EXPECT_EQ(news(), (Words{"  b: com.example.X has an owner now"}));
    EXPECT_FALSE(calls_.is_anyone_waiting());
}

TEST_F(BlockCallsTest, AnswerIsTheServicesOwn) {
    calls_.owner_told("b", "com.example.X", false, second);
    EXPECT_EQ(news().size(), 1U);
    call("Ask", &unknown_sensor);
    EXPECT_EQ(news().size(), 2U) << "it is there, and it refuses";
    EXPECT_FALSE(calls_.is_anyone_waiting());
}

TEST_F(BlockCallsTest, WhatComesAndGoesIsToldOnceInTenSeconds) {
    for (std::uint64_t time = 1; time <= 5; ++time) {
        call("Ask", &unknown_sensor, time * second);
        call("Ask", nullptr, time * second);
    }
    EXPECT_EQ(news().size(), 2U);
    call("Ask", &unknown_sensor, 12 * second);
    EXPECT_EQ(news().size(), 1U);
}

TEST_F(BlockCallsTest, AnotherErrorIsAnotherReason) {
    call("Ask", &unknown_sensor);
    const sd_bus_error other = SD_BUS_ERROR_MAKE_CONST("com.example.Error.Broken", nullptr);
    call("Ask", &other, 20 * second);
    EXPECT_EQ(news().back(), "! b: Ask was refused by com.example.X: com.example.Error.Broken");
}

TEST_F(BlockCallsTest, LimitOfTheBusIsReportedElsewhere) {
    const sd_bus_error limit = SD_BUS_ERROR_MAKE_CONST(SD_BUS_ERROR_LIMITS_EXCEEDED, "too many");
    call("Ask", &limit);
    EXPECT_EQ(news(), Words{});
}

TEST_F(BlockCallsTest, CallWithoutAnAnswerIsNotCalledRefused) {
    const sd_bus_error none = SD_BUS_ERROR_MAKE_CONST(SD_BUS_ERROR_NO_REPLY, "timed out");
    call("Ask", &none);
    EXPECT_EQ(news(), (Words{"! b: Ask was not answered by com.example.X: NoReply: timed out"}));
}

TEST_F(BlockCallsTest, LastCallIsTheOneThatWasSentLast) {
    EXPECT_EQ(calls_.last_call("b"), nullptr);
    const ServiceCall first{"com.example.X", "First", 1};
    const ServiceCall last{"com.example.X", "Last", 2};
    calls_.sent("b", first);
    calls_.sent("b", last);
    calls_.ended("b", first, &unknown_sensor, 3);
    ASSERT_NE(calls_.last_call("b"), nullptr);
    EXPECT_EQ(calls_.last_call("b")->member, "Last");
    EXPECT_EQ(calls_.last_call("b")->state, ServiceCall::State::unanswered);
    calls_.ended("b", last, &unknown_sensor, 3);
    EXPECT_EQ(calls_.last_call("b")->state, ServiceCall::State::failed);
    EXPECT_EQ(calls_.last_call("b")->error, "com.example.Error.UnknownSensor");
    calls_.ended("unknown", last, nullptr, 3);
}

TEST_F(BlockCallsTest, ForgottenBlockWaitsForNothing) {
    call("Ask", &no_owner);
    calls_.forget("b");
    calls_.forget("b");
    EXPECT_FALSE(calls_.is_anyone_waiting());
    EXPECT_EQ(calls_.services("b"), Words{});
    EXPECT_EQ(calls_.last_call("b"), nullptr);
}

}  // namespace
}  // namespace host
