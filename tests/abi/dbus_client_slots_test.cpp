#include <gtest/gtest.h>

#include "tests/abi/vtable.hpp"
#include "tests/support/layout_probe.hpp"

namespace {

using abi_test::call_slot;
using blocks::LayoutProbe;
using blocks::OwnerState;
using Names = std::vector<std::string>;

/// A client that says which of the operations behind those of a block was called.
class SpeakingClient final : public blocks::DBusClient {
  public:
    SpeakingClient() : DBusClient("com.example.Followed", "speaking", {}) {}
    void on_service_appeared() override { calls.emplace_back("on_service_appeared"); }
    void run_with_service() override { calls.emplace_back("run_with_service"); }

    Names calls;
};

TEST(DBusClientSlotsTest, Slot16IsStop) {
    SpeakingClient client;
    call_slot<void>(&client, 16);
    EXPECT_EQ(LayoutProbe::state(client), OwnerState::Stopped);
}

TEST(DBusClientSlotsTest, Slot17IsRun) {
    SpeakingClient client;
    LayoutProbe::state(client) = OwnerState::OwnerAppeared;
    EXPECT_TRUE(call_slot<bool>(&client, 17));
    EXPECT_EQ(client.calls, (Names{"on_service_appeared", "run_with_service"}));
}

TEST(DBusClientSlotsTest, Slots19And20AreTheHooksOfTheDerivedBlock) {
    SpeakingClient client;
    call_slot<void>(&client, 19);
    EXPECT_EQ(client.calls, (Names{"on_service_appeared"}));
    call_slot<void>(&client, 20);
    EXPECT_EQ(client.calls, (Names{"on_service_appeared", "run_with_service"}));
}

}  // namespace
