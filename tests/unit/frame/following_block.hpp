#pragma once

#include <functional>
#include <string>

#include "tests/unit/block_fixture.hpp"

namespace client_test {

using namespace support;  // NOLINT(google-build-using-namespace): a namespace of tests
using blocks::OwnerState;

inline constexpr const char* followed_name = "com.example.Followed";
inline const std::string question = owner_query(followed_name);

/// A block that puts into the journal what its base tells it, with the state that it is told in.
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

    std::function<void()> when_it_appears;

  private:
    void record(const std::string& step) {
        const int at = static_cast<int>(blocks::LayoutProbe::state(*this));
        EffectJournal::shared()->record(effect::operation,
                                        step + " in state " + std::to_string(at));
    }
};

// What a run does in which the block is told of its service, and in which it was told before.
inline const Journal told{"appeared in state 5", "work in state 6"};
inline const Journal works{"work in state 6"};

class DBusClientTest : public BlockFixture<FollowingBlock> {
  protected:
    [[nodiscard]] OwnerState state() { return LayoutProbe::state(block()); }

    /// Builds a client and brings it to the point where the match, its sending 1, is installed.
    void install_match() {
        build(followed_name);
        EXPECT_EQ(run(), (Journal{owner_match}));
        EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
        EXPECT_EQ(state(), OwnerState::MatchAdded);
    }
    /// ... and from there to where the owner has been asked for in sending 2.
    void ask() {
        install_match();
        EXPECT_EQ(run(), (Journal{question}));
        EXPECT_EQ(state(), OwnerState::QueryingOwner);
        EXPECT_TRUE(woken());
    }
    /// ... and answered.
    void follow() {
        ask();
        EXPECT_EQ(deliver(bus.last(), messages.reply("s", ":1.5")),
                  (Journal{"fire event_port", returns(1)}));
    }
    Journal change_owner(const char* name, const char* new_owner) {
        return deliver(bus.sending(1), messages.owner_change(name, "", new_owner));
    }
};

}  // namespace client_test
