#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/block_driver.hpp"
#include "tests/support/layout_probe.hpp"

namespace client_test {

using blocks::LayoutProbe;
using blocks::OwnerState;
using Journal = std::vector<std::string>;
using Lines = std::vector<std::string>;

inline constexpr const char* followed_name = "com.example.Followed";
inline constexpr const char* match_sent =
    "match type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'";
inline constexpr const char* question_sent =
    "call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus "
    "GetNameOwner(s \"com.example.Followed\")";

/// A block that only records what its base tells it, with the state that it was told in.
class FollowingBlock final : public blocks::DBusClient {
  public:
    explicit FollowingBlock(const std::string& followed) : DBusClient(followed, "follower", {}) {}

    using DBusClient::bus;
    using DBusClient::wake;

    void on_service_appeared() override {
        record("appeared");
        if (when_it_appears)
            when_it_appears();
    }
    void run_with_service() override { record("work"); }

    Journal steps;
    std::function<void()> when_it_appears;

  private:
    void record(const std::string& step) {
        const int at = static_cast<int>(LayoutProbe::state(*this));
        steps.push_back(step + " in state " + std::to_string(at));
    }
};

class DBusClientTest : public support::BlockTest {
  protected:
    void make(const std::string& service_name = followed_name) {
        client.emplace(recorders.tools, service_name);
    }

    [[nodiscard]] OwnerState state() { return LayoutProbe::state(**client); }

    /// Brings a fresh client to the point where the match is installed.
    void install_match() {
        EXPECT_TRUE((*client)->run());
        EXPECT_EQ(bus.take_journal(), (Journal{match_sent}));
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        EXPECT_TRUE(client->woken());
    }

    /// ... and from there to where the owner has been asked for.
    void ask() {
        EXPECT_TRUE((*client)->run());
        EXPECT_EQ(bus.take_journal(), (Journal{question_sent}));
        EXPECT_EQ(state(), OwnerState::QueryingOwner);
    }

    support::Message owner_change(const char* name, const char* new_owner) {
        return messages.owner_change(name, "", new_owner);
    }

    std::optional<support::BlockDriver<FollowingBlock>> client;
};

}  // namespace client_test
