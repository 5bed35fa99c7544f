#pragma once

#include <functional>
#include <string>

#include "tests/unit/block_fixture.hpp"

namespace client_test {

using namespace support;  // NOLINT(google-build-using-namespace): a namespace of tests
using blocks::OwnerState;

inline constexpr const char* followed_name = "com.example.Followed";
inline const std::string question = owner_query(followed_name);

/// A block that records the calls of its base in the journal, with the state at that moment.
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

// The effects of a run right after the service has appeared, and of a later one.
inline const Journal first_work{"appeared in state 5", "work in state 6"};
inline const Journal later_work{"work in state 6"};

class DBusClientTest : public BlockFixture<FollowingBlock> {
  protected:
    [[nodiscard]] OwnerState state() { return LayoutProbe::state(block()); }

    /// Builds a client and installs its match, sending 1.
    void install_match() {
        build(followed_name);
        EXPECT_EQ(run(), (Journal{owner_match}));
        EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
        EXPECT_EQ(state(), OwnerState::MatchAdded);
    }
    /// ... and has it ask for the owner, sending 2.
    void ask() {
        install_match();
        EXPECT_EQ(run(), (Journal{question}));
        EXPECT_EQ(state(), OwnerState::QueryingOwner);
        EXPECT_TRUE(woken());
    }
    /// ... and answers with an owner.
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
