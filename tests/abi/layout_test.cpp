#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <type_traits>
#include <variant>

#include "fenwa/fenwa.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/log_sink.hpp"
#include "tests/support/layout_probe.hpp"

namespace {

using blocks::ControlsState;
using blocks::OwnerState;

template <class Object, class Member>
std::size_t offset_of(const Object& object, const Member& member) {
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&member) -
                                    reinterpret_cast<const char*>(&object));
}

std::size_t aligned(std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) / alignment * alignment;
}

/// The members stand one behind the other, the first directly behind a base of this size.
void expect_in_order(const std::vector<blocks::MemberPlace>& members, std::size_t base_size) {
    std::size_t end = base_size;
    for (const auto& member : members) {
        EXPECT_EQ(member.offset, aligned(end, member.alignment)) << member.name;
        end = member.offset + member.size;
    }
}

template <class T>
void expect_value_behind_the_base() {
    const Fenwa::OutPort<T> port("out", Fenwa::datatype_of<T>());
    EXPECT_EQ(offset_of(port, port.value), aligned(sizeof(Fenwa::OutPortInternal), alignof(T)));
    EXPECT_EQ(static_cast<const void*>(static_cast<const Fenwa::OutPortInternal*>(&port)), &port);
}

TEST(LayoutTest, HoldsAnOutputsValueDirectlyBehindItsBase) {
    expect_value_behind_the_base<float>();
    expect_value_behind_the_base<bool>();
    expect_value_behind_the_base<double>();
}

TEST(LayoutTest, HasTheBusToolsFirstInTheTools) {
    const Fenwa::InitTools tools(nullptr);
    EXPECT_EQ(offset_of(tools, tools.sdbus_tools), 0U);
    static_assert(std::is_same_v<decltype(tools.sdbus_tools), Fenwa::SDBusTools*>);
}

TEST(LayoutTest, HoldsALogLinesLevelBehindItsStream) {
    static_assert(std::is_base_of_v<std::ostringstream, Fenwa::ilog>);
    static_assert(!std::is_convertible_v<Fenwa::ilog*, std::ostringstream*>);
    // The virtual base ends what the stream has in front of it: there a derived class goes on.
    const std::ostringstream stream;
    const std::size_t end = offset_of(stream, static_cast<const std::ios&>(stream));
    Fenwa::set_log_sink([](int, const std::string&) {});
    {
        constexpr int level = 0x01234567;
        const Fenwa::ilog line(level);
        int found = 0;
        std::memcpy(&found, reinterpret_cast<const char*>(&line) + end, sizeof(found));
        EXPECT_EQ(found, level);
    }
    Fenwa::set_log_sink({});
    EXPECT_EQ(sizeof(Fenwa::ilog),
              aligned(sizeof(std::ostringstream) + sizeof(int), alignof(std::ostringstream)));
}

/// A client that does nothing.
struct IdleClient final : blocks::DBusClient {
    IdleClient() : DBusClient("a.b", "idle", {}) {}
    void on_service_appeared() override {}
    void run_with_service() override {}
};

TEST(LayoutTest, HoldsAClientsMembersInOrderBehindTheBlock) {
    IdleClient client;
    expect_in_order(blocks::LayoutProbe::members(client), sizeof(Fenwa::Block));
    EXPECT_EQ(blocks::LayoutProbe::members(client).size(), 5U);
}

TEST(LayoutTest, HoldsAReadersMembersInOrderBehindTheClient) {
    const blocks::TemperatureReader reader("reader",
                                           {{"sensor_name", {"main"}}, {"delta_chg", 1.0}});
    expect_in_order(blocks::LayoutProbe::members(reader), sizeof(blocks::DBusClient));
    EXPECT_EQ(blocks::LayoutProbe::members(reader).size(), 11U);
}

TEST(LayoutTest, HoldsAMonitorsMembersInOrderBehindTheBlock) {
    Fenwa::set_log_sink([](int, const std::string&) {});  // there is no controller to be read
    Fenwa::ConnectionTools no_bus(nullptr);
    const Fenwa::InitTools tools(&no_bus);
    const blocks::TemperatureMonitor monitor("monitor", {{"sensor_name", {"main"}}}, tools);
    Fenwa::set_log_sink({});
    expect_in_order(blocks::LayoutProbe::members(monitor), sizeof(Fenwa::Block));
    EXPECT_EQ(blocks::LayoutProbe::members(monitor).size(), 15U);
}

TEST(LayoutTest, HoldsAPowerConsumersMembersInOrderBehindTheBlock) {
    Fenwa::set_log_sink([](int, const std::string&) {});
    const blocks::PowerConsumer consumer("consumer", {{"power", 1.0}});
    Fenwa::set_log_sink({});
    expect_in_order(blocks::LayoutProbe::members(consumer), sizeof(Fenwa::Block));
    EXPECT_EQ(blocks::LayoutProbe::members(consumer).size(), 13U);
}

TEST(LayoutTest, HoldsAPowerMonitorsMembersInOrderBehindTheBlock) {
    Fenwa::set_log_sink([](int, const std::string&) {});  // there is no power to be read
    Fenwa::ConnectionTools no_bus(nullptr);
    const Fenwa::InitTools tools(&no_bus);
    const blocks::PowerMonitor monitor("monitor", {{"requested_power", 1.0}}, tools);
    Fenwa::set_log_sink({});
    expect_in_order(blocks::LayoutProbe::members(monitor), sizeof(Fenwa::Block));
    EXPECT_EQ(blocks::LayoutProbe::members(monitor).size(), 10U);
}

TEST(LayoutTest, HoldsOnScreenControlsMembersInOrderBehindTheBlock) {
    const blocks::OnScreenControls controls("controls", {{"channel", 0}});
    expect_in_order(blocks::LayoutProbe::members(controls), sizeof(Fenwa::Block));
    EXPECT_EQ(blocks::LayoutProbe::members(controls).size(), 11U);
}

TEST(LayoutTest, HoldsATextOverlaySettersMembersInOrderBehindTheBlock) {
    const blocks::PrioritizedTextOverlaySetter setter("setter", {});
    expect_in_order(blocks::LayoutProbe::members(setter), sizeof(Fenwa::Block));
    EXPECT_EQ(blocks::LayoutProbe::members(setter).size(), 5U);
}

TEST(LayoutTest, HoldsAVideoReadysMembersInOrderBehindTheBlock) {
    Fenwa::ConnectionTools no_bus(nullptr);
    const Fenwa::InitTools tools(&no_bus);
    const blocks::VideoReady block("ready", {{"channel", 0}}, tools);
    expect_in_order(blocks::LayoutProbe::members(block), sizeof(Fenwa::Block));
    EXPECT_EQ(blocks::LayoutProbe::members(block).size(), 6U);
}

TEST(LayoutTest, NumbersTheControlsStates) {
    static_assert(std::is_same_v<std::underlying_type_t<ControlsState>, std::int32_t>);
    EXPECT_EQ(static_cast<int>(ControlsState::Idle), 0);
    EXPECT_EQ(static_cast<int>(ControlsState::AddingMatch), 1);
    EXPECT_EQ(static_cast<int>(ControlsState::MatchAdded), 2);
    EXPECT_EQ(static_cast<int>(ControlsState::QueryingOwner), 3);
    EXPECT_EQ(static_cast<int>(ControlsState::NoOwner), 4);
    EXPECT_EQ(static_cast<int>(ControlsState::OwnerAppeared), 5);
    EXPECT_EQ(static_cast<int>(ControlsState::ListingFeatures), 6);
    EXPECT_EQ(static_cast<int>(ControlsState::FeaturesListed), 7);
    EXPECT_EQ(static_cast<int>(ControlsState::UpdatePending), 8);
    EXPECT_EQ(static_cast<int>(ControlsState::Synchronized), 9);
    EXPECT_EQ(static_cast<int>(ControlsState::Stopped), 10);
}

TEST(LayoutTest, NumbersTheOwnerStates) {
    static_assert(std::is_same_v<std::underlying_type_t<OwnerState>, int>);
    EXPECT_EQ(static_cast<int>(OwnerState::Idle), 0);
    EXPECT_EQ(static_cast<int>(OwnerState::AddingMatch), 1);
    EXPECT_EQ(static_cast<int>(OwnerState::MatchAdded), 2);
    EXPECT_EQ(static_cast<int>(OwnerState::QueryingOwner), 3);
    EXPECT_EQ(static_cast<int>(OwnerState::NoOwner), 4);
    EXPECT_EQ(static_cast<int>(OwnerState::OwnerAppeared), 5);
    EXPECT_EQ(static_cast<int>(OwnerState::Running), 6);
    EXPECT_EQ(static_cast<int>(OwnerState::Stopped), 7);
}

TEST(LayoutTest, NumbersTheAlternativesOfADebugValue) {
    EXPECT_EQ(Fenwa::DebugValue(std::string()).index(), 0U);
    EXPECT_EQ(Fenwa::DebugValue(std::int32_t{0}).index(), 1U);
    EXPECT_EQ(Fenwa::DebugValue(0.0F).index(), 2U);
    EXPECT_EQ(Fenwa::DebugValue(0.0).index(), 3U);
    EXPECT_EQ(Fenwa::DebugValue(false).index(), 4U);
    EXPECT_EQ(std::variant_size_v<Fenwa::DebugValue>, 5U);
}

/// Bytes with pointers of 64 bits, and with those of 32.
constexpr std::size_t by_pointer(std::size_t wide, std::size_t narrow) {
    return sizeof(void*) == 8 ? wide : narrow;
}

TEST(LayoutTest, HasTheSizesOfTheTarget) {
    EXPECT_EQ(sizeof(Fenwa::Block), by_pointer(16, 8));
    EXPECT_EQ(sizeof(Fenwa::BlockConfiguration), by_pointer(16, 8));
    EXPECT_EQ(sizeof(Fenwa::BlockConfiguration::KeyValue), by_pointer(72, 56));
    EXPECT_EQ(sizeof(Fenwa::Datatype), by_pointer(32, 24));
    EXPECT_EQ(sizeof(Fenwa::InitTools), by_pointer(8, 4));
    EXPECT_EQ(sizeof(Fenwa::PortInfo), by_pointer(64, 48));
    EXPECT_EQ(sizeof(Fenwa::Port), by_pointer(48, 32));
    EXPECT_EQ(sizeof(Fenwa::EventPort), by_pointer(56, 36));
    EXPECT_EQ(sizeof(Fenwa::InPortInternal), by_pointer(96, 64));
    EXPECT_EQ(sizeof(Fenwa::InPortProvider), by_pointer(8, 4));
    EXPECT_EQ(sizeof(Fenwa::InPort<int>), by_pointer(104, 68));
    EXPECT_EQ(sizeof(Fenwa::OutPortInternal), by_pointer(88, 60));
    EXPECT_EQ(sizeof(Fenwa::OutPort<float>), by_pointer(96, 64));
    EXPECT_EQ(sizeof(Fenwa::OutPort<double>), by_pointer(96, 72));
    EXPECT_EQ(sizeof(Fenwa::SDBusTools), by_pointer(8, 4));
    EXPECT_EQ(sizeof(Fenwa::SDBusError), by_pointer(112, 80));
    EXPECT_EQ(sizeof(Fenwa::IRegistry), by_pointer(8, 4));
    EXPECT_EQ(sizeof(Fenwa::DebugDataStore), by_pointer(8, 4));
    EXPECT_EQ(sizeof(Fenwa::RegisteredBlock), 8U);
    EXPECT_EQ(sizeof(Fenwa::DebugValue), by_pointer(40, 32));
    EXPECT_EQ(sizeof(Fenwa::datatype_timersource), 16U);
}

TEST(LayoutTest, HasNoMembersOfABlockButItsStateBehindTheVirtualTable) {
    EXPECT_EQ(sizeof(Fenwa::Block), 2 * sizeof(void*));
}

}  // namespace
