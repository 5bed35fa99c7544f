#include <gtest/gtest.h>

#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/host_access.hpp"
#include "framework/shared/log_sink.hpp"
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

TEST(TemperatureReaderSlotsTest, OverridesTheSlotsOfItsBases) {
    // On a bus that is not there, what is sent fails, which names the operation that sent it.
    Fenwa::ConnectionTools nowhere(nullptr);
    const Fenwa::InitTools tools(&nowhere);
    Fenwa::ReadyQueue queue([] {});
    Names lines;
    Fenwa::set_log_sink([&lines](int, const std::string& line) { lines.push_back(line); });

    blocks::TemperatureReader reader("reader", {{"sensor_name", {"main"}}, {"delta_chg", 1.0}});
    EXPECT_TRUE(Fenwa::HostAccess::adopt(reader, tools, queue).empty());
    call_slot<void>(&reader, 20);
    EXPECT_EQ(lines, (Names{"Failed to add DBus signal callback: Invalid argument"}));
    call_slot<void>(&reader, 19);
    EXPECT_TRUE(call_slot<bool>(&reader, 17));
    EXPECT_EQ(lines.back(), "Failed to add match for NameOwnerChanged: Invalid argument");
    const Fenwa::BlockConfiguration without_keys;
    EXPECT_THROW(
        (call_slot<void, const Fenwa::BlockConfiguration&, const Fenwa::BlockConfiguration&>(
            &reader, 18, without_keys, without_keys)),
        Fenwa::ConfigurationError);
    call_slot<void>(&reader, 16);
    EXPECT_EQ(LayoutProbe::state(reader), OwnerState::Stopped);
    Fenwa::set_log_sink({});
}

}  // namespace
