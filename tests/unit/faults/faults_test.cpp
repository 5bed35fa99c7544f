#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fenwa/testkit/block_driver.hpp"
#include "framework/shared/host_access.hpp"
#include "tests/support/layout_probe.hpp"
#include "tests/unit/faults/life.hpp"

namespace faults {
namespace {

using blocks::LayoutProbe;
using support::Message;
using support::Messages;
using support::reply_of;

/// What a failing call leads to.
struct Consequence {
    Call call;
    std::vector<std::string> lines;  ///< without the errno's text, which stands for "…"
    /// Empty where the block does after the next restart what it does without a fault; otherwise
    /// why it cannot.
    std::string stall = {};
};

struct Case : support::NamedCase {
    Surroundings (*surroundings)();
    std::vector<Consequence> consequences;
};

template <class T>
auto build_with(const Fenwa::BlockConfiguration& config) {
    return [config](const Fenwa::InitTools& tools) -> std::unique_ptr<Fenwa::Block> {
        return Fenwa::testkit::build_block<T>(tools, std::string("block"), config);
    };
}

// The services. Each is at work again after its restart.

constexpr const char* controller = "com.tarlo.TemperatureController";
constexpr const char* controller_path = "/com/tarlo/TemperatureController";

Surroundings reader() {
    Surroundings around;
    around.build =
        build_with<blocks::TemperatureReader>({{"sensor_name", {"main"}}, {"delta_chg", 0.5}});
    around.replies = {{"GetNameOwner", reply_of("s", ":1.5")},
                      {"GetTemperatureIdFromName", reply_of("i", 3)},
                      {"RegisterForTemperatureChangeSignal", reply_of("i", 12)},
                      {"GetTemperature", reply_of("d", 36.5)}};
    around.service = controller;
    around.traffic = [](Life& life, int turn) {
        life.signal("TemperatureChangeSignal",
                    life.messages().signal(controller_path, controller, "TemperatureChangeSignal",
                                           "id", 12, 40.0 + turn));
    };
    return around;
}

Surroundings temperature_monitor() {
    Surroundings around;
    around.build = build_with<blocks::TemperatureMonitor>({{"sensor_name", {"main"}}});
    // The ids of the limits: low_on, high_on, low_off, high_off.
    around.replies = {{"GetTemperatureIdFromName", reply_of("i", 3)},
                      {"GetTemperature", reply_of("d", 20.0)},
                      {"RegisterForTemperatureSignal", [next = 0](Messages& messages) mutable {
                           return messages.reply("ib", 10 + next++ % 4, 0);
                       }}};
    around.service = controller;
    around.traffic = [](Life& life, int /*turn*/) {
        for (const int crossed : {13, 10}) {
            life.signal("TemperatureSignal",
                        life.messages().signal(controller_path, controller, "TemperatureSignal",
                                               "i", crossed));
            life.settle();
        }
    };
    return around;
}

Surroundings consumer() {
    Surroundings around;
    around.build = build_with<blocks::PowerConsumer>({{"power", 12.5}});
    around.replies = {{"Register", reply_of("")}, {"RequestPower", reply_of("")}};
    around.service = "com.tarlo.PowerControl.Consumer";
    around.traffic = [](Life& life, int turn) {
        life.call(
            LayoutProbe::exported_methods()[1].x.method.handler,
            life.messages().call("/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer",
                                 "SetPower", "d", 5.0 + turn));
    };
    return around;
}

Surroundings power_monitor() {
    Surroundings around;
    around.build = build_with<blocks::PowerMonitor>({{"requested_power", 5.0}});
    around.replies = {{"PowerReceived", reply_of("d", 12.0)}, {"Get", reply_of("v", "d", 12.0)}};
    around.traffic = [](Life& life, int /*turn*/) {
        for (const double power : {3.0, 12.0}) {
            life.signal("PropertiesChanged",
                        life.messages().signal(
                            "/com/tarlo/PowerControl/Status", "org.freedesktop.DBus.Properties",
                            "PropertiesChanged", "sa{sv}as", "com.tarlo.PowerControl.Status", 2,
                            "PowerUsed", "d", 1.0, "PowerReceived", "d", power, 0));
            life.settle();
        }
    };
    return around;
}

Surroundings controls() {
    Surroundings around;
    around.build = build_with<blocks::OnScreenControls>({{"channel", 0}, {"wdr", true}});
    around.replies = {{"GetNameOwner", reply_of("s", ":1.5")},
                      {"ListAddedFeatures", reply_of("a(sas)", 1, "WDR0", 1, "de")},
                      {"AddFeatures", reply_of("")},
                      {"RemoveFeatures", reply_of("")}};
    around.service = "com.tarlo.Onscreencontrols1";
    return around;
}

Surroundings overlay() {
    Surroundings around;
    around.build =
        build_with<blocks::PrioritizedTextOverlaySetter>({{"prio_text_overlay", {"Smoke"}}});
    around.replies = {{"Set", reply_of("")}};
    return around;
}

Surroundings video() {
    Surroundings around;
    around.build = build_with<blocks::VideoReady>({{"channel", 0}});
    around.replies = {{"GetUnitFileState", reply_of("s", "enabled")},
                      {"SignalVideoReady", reply_of("")}};
    around.traffic = [](Life& life, int /*turn*/) {
        Fenwa::HostAccess::notify(*life.block().get_inport("rotation_vip0_in"), life.block());
    };
    return around;
}

// Why a block does not do what it should after a restart of its service.
const std::string waits_for_match = "it waits for the answer to a match that was never sent";
const std::string keeps_slot = "the call counts as unanswered, and the next step waits for it";
const std::string unknown_sensor = "it registers its limits with sensor -1";

/// The only line is that of a failed step of PowerMonitor or OnScreenControls.
Consequence step(const std::string& function, const std::string& message, const std::string& line) {
    return {"sd_bus_message_" + function + ": " + message, {line}};
}

const Case cases[] = {
    {{"TemperatureReader"},
     reader,
     {{"sd_bus_add_match_async: match",
       {"1 Failed to add match for NameOwnerChanged: …"},
       waits_for_match},
      {"sd_bus_call_method_async: GetNameOwner", {"1 Failed to call method GetNameOwner: …"}},
      {"sd_bus_message_read: reply to GetNameOwner",
       {"2 check_name_owner_callback failed to parse message: …"}},
      {"sd_bus_match_signal_async: TemperatureChangeSignal",
       {"2 Failed to add DBus signal callback: …"}},
      {"sd_bus_call_method_async: GetTemperatureIdFromName",
       {"1 Failed to call GetTemperatureIdFromName: …"}},
      {"sd_bus_message_read: reply to GetTemperatureIdFromName",
       {"2 Failed to parse sensor id: …"},
       keeps_slot},
      {"sd_bus_call_method_async: RegisterForTemperatureChangeSignal",
       {"1 Failed to call method RegisterForTemperatureChangeSignal: …"}},
      {"sd_bus_message_read: reply to RegisterForTemperatureChangeSignal",
       {"2 Failed to setup temperature change singal: …"},
       keeps_slot},
      {"sd_bus_call_method_async: GetTemperature",
       {"1 Failed to call method RegisterForTemperatureChangeSignal: …"}},
      {"sd_bus_message_read: reply to GetTemperature",
       {"2 Failed to parse sensor id: …"},
       keeps_slot},
      {"sd_bus_message_read: TemperatureChangeSignal", {"2 Failed to setup temperature signal: …"}},
      {"sd_bus_message_read: NameOwnerChanged",
       {"2 NameOwnerChanged failed to parse message: …"}}}},
    {{"TemperatureMonitor"},
     temperature_monitor,
     {{"call_method: GetTemperatureIdFromName",
       {"2 Failed to lookup sensor id: org.freedesktop.DBus.Error.Failed: …",
        "2 Failed to parse sensor id: Invalid argument"},
       unknown_sensor},
      {"sd_bus_message_read: reply to GetTemperatureIdFromName",
       {"2 Failed to parse sensor id: …"},
       unknown_sensor},
      {"call_method: GetTemperature",
       {"2 Failed to read temperature: org.freedesktop.DBus.Error.Failed: …",
        "2 Failed to parse sensor id: Invalid argument"}},
      {"sd_bus_message_read: reply to GetTemperature", {"2 Failed to parse sensor id: …"}},
      {"sd_bus_add_match_async: match", {"1 Failed to add match for NameOwnerChanged: …"}},
      {"sd_bus_match_signal_async: TemperatureSignal", {"2 Failed to add DBus signal callback: …"}},
      {"sd_bus_call_method_async: RegisterForTemperatureSignal",
       {"1 Failed to RegisterForTemperatureSignal: …"}},
      {"sd_bus_message_read: reply to RegisterForTemperatureSignal",
       {"2 Failed to read temperature signal result: …"},
       keeps_slot},
      {"sd_bus_message_read: TemperatureSignal", {"2 Failed to setup temperature signal: …"}},
      {"sd_bus_message_read: NameOwnerChanged",
       {"2 NameOwnerChanged failed to parse message: …"}}}},
    {{"PowerConsumer"},
     consumer,
     {{"sd_bus_add_match: match",
       {"1 Failed to add match for NameOwnerChanged: …"},
       "a match is requested once, so it does not learn of restarts"},
      {"sd_bus_call_method_async: Register", {"1 Failed to register consumer: …"}},
      {"sd_bus_call_method_async: RequestPower", {"1 Failed to request power: …"}},
      {"sd_bus_message_read: SetPower", {"1 Failed to parse parameters: …"}},
      {"sd_bus_reply_method_return: SetPower", {}},
      {"sd_bus_message_read: NameOwnerChanged", {"2 NameOwnerChanged failed to parse message: …"}},
      {"sd_bus_call_method_async: Unregister", {"1 Failed to unregister power consumer: …"}}}},
    {{"PowerMonitor"},
     power_monitor,
     {{"get_property: PowerReceived",
       {"1 Failed to get PowerReceived from com.tarlo.PowerControl.Status. "
        "org.freedesktop.DBus.Error.Failed: …",
        "1 Failed to get PowerReceived from dbus reply.\n"}},
      step("read", "reply to PowerReceived", "1 Failed to get PowerReceived from dbus reply.\n"),
      {"sd_bus_add_match_async: match",
       {"1 Failed to send properties changed signal handler request: …"}},
      // It answers signals and replies, which sd-bus refuses anyway.
      {"sd_bus_reply_method_return: reply to the match", {}},
      {"sd_bus_reply_method_return: reply to Get", {}},
      {"sd_bus_reply_method_return: PropertiesChanged", {}},
      {"sd_bus_call_method_async: Get", {"1 Failed to query PowerReceived: …"}},
      step("read", "reply to Get", "1 Failed to read value of PowerReceived: …"),
      step("skip", "PropertiesChanged", "1 Failed to enter container\n"),
      step("enter_container", "PropertiesChanged", "1 Failed to enter container\n"),
      // No further entry, or a value of another type.
      {"sd_bus_message_enter_container 2: PropertiesChanged", {}},
      step("read", "PropertiesChanged", "1 Failed to read property name\n"),
      step("skip 2", "PropertiesChanged", "1 Failed to skip message: …\n"),
      step("exit_container", "PropertiesChanged", "1 Failed to exit container for: PowerUsed\n"),
      {"sd_bus_message_enter_container 3: PropertiesChanged", {}},
      step("read 2", "PropertiesChanged", "1 Failed to read property name\n"),
      {"sd_bus_message_enter_container 4: PropertiesChanged", {}},
      step("read 3", "PropertiesChanged", "1 Failed to read value of PowerReceived: …\n"),
      step("exit_container 2", "PropertiesChanged",
           "1 Failed to exit container for: PowerReceived\n"),
      {"sd_bus_message_enter_container 5: PropertiesChanged", {}}}},
    {{"OnScreenControls"},
     controls,
     {{"sd_bus_add_match_async: match",
       {"1 Failed to add match for NameOwnerChanged: …"},
       waits_for_match},
      {"sd_bus_call_method_async: GetNameOwner", {"1 Failed to call method GetNameOwner: …"}},
      {"sd_bus_message_read: reply to GetNameOwner",
       {"2 check_name_owner_callback failed to parse message: …"}},
      {"sd_bus_call_method_async: ListAddedFeatures",
       {"1 Failed to call method ListAddedFeatures: …"}},
      step("enter_container", "reply to ListAddedFeatures", "2 Failed to enter array: …"),
      step("enter_container 2", "reply to ListAddedFeatures", "2 Failed to enter struct: …"),
      step("read_basic", "reply to ListAddedFeatures", "2 Failed to read string: …"),
      step("enter_container 3", "reply to ListAddedFeatures", "2 Failed to enter sub-array: …"),
      step("read_basic 2", "reply to ListAddedFeatures", "2 Failed to read sub-string: …"),
      step("read_basic 3", "reply to ListAddedFeatures", "2 Failed to read sub-string: …"),
      step("exit_container", "reply to ListAddedFeatures", "2 Failed to exit sub-array: …"),
      step("exit_container 2", "reply to ListAddedFeatures", "2 Failed to exit struct: …"),
      step("enter_container 4", "reply to ListAddedFeatures", "2 Failed to enter struct: …"),
      step("exit_container 3", "reply to ListAddedFeatures", "2 Failed to exit container: …"),
      {"sd_bus_call_method_async: AddFeatures", {"1 Failed to call method AddFeatures: …"}},
      {"sd_bus_call_method_async: RemoveFeatures", {"2 Failed to remove feature \"WDR1\": …"}},
      {"sd_bus_message_read: NameOwnerChanged",
       {"2 NameOwnerChanged failed to parse message: …"}}}},
    {{"PrioritizedTextOverlaySetter"},
     overlay,
     {{"sd_bus_call_method_async: Set",
       {"2 Could not set prioritized text overlay: …"},
       "it asks once, at the start, and has no text to remove in the end"},
      {"sd_bus_call_method: Unset", {"2 Could not unset prioritized text overlay: …"}}}},
    {{"VideoReady"},
     video,
     {{"call_method: GetUnitFileState", {}, "it takes the platform for one that delays no video"},
      {"sd_bus_message_read: reply to GetUnitFileState",
       {"1 Failed to parse status of video-ready.service: …"},
       "it takes the platform for one that delays no video"},
      {"call_method: SignalVideoReady",
       {"2 Failed to signal video enabled to : org.freedesktop.DBus.Error.Failed: …"}}}},
};

constexpr int errors[] = {-ENOMEM, -ENOTCONN, -EINVAL};

std::vector<std::string> with_text_of(int error, std::vector<std::string> lines) {
    for (std::string& line : lines) {
        if (const auto place = line.find("…"); place != std::string::npos)
            line.replace(place, std::strlen("…"), std::strerror(-error));
    }
    return lines;
}

Traces lead(const Case& block, Fault fault) {
    const Surroundings around = block.surroundings();
    return Life(around, fault).lead();
}

class EachBlockFaultTest : public testing::TestWithParam<Case> {};

TEST_P(EachBlockFaultTest, LivesThroughAnyCallThatFails) {
    const Case& block = GetParam();
    std::map<Call, const Consequence*> consequences;
    for (const Consequence& each : block.consequences)
        consequences.emplace(each.call, &each);
    const Traces sound = lead(block, {});
    EXPECT_EQ(sound.lines, std::vector<std::string>{});
    EXPECT_NE(sound.last_deeds, std::vector<std::string>{});

    std::set<Call> failed;
    int faults = 0;
    for (std::size_t number = 1; number <= sound.calls.size(); ++number) {
        const Call& call = sound.calls[number - 1];
        const auto known = consequences.find(call);
        ASSERT_NE(known, consequences.end()) << "nothing is said about " << call;
        failed.insert(call);
        for (const int error : errors) {
            SCOPED_TRACE("call " + std::to_string(number) + ", " + call + ": " +
                         std::strerror(-error));
            const Traces traces = lead(block, {number, error});
            ++faults;
            EXPECT_EQ(traces.lines, with_text_of(error, known->second->lines));
            if (known->second->stall.empty())
                EXPECT_EQ(traces.last_deeds, sound.last_deeds);
            else
                EXPECT_NE(traces.last_deeds, sound.last_deeds)
                    << "it recovers, although " << known->second->stall;
        }
    }
    EXPECT_EQ(failed.size(), consequences.size()) << "more consequences than calls";
    std::cout << block.name << ": " << faults << " faults in " << sound.calls.size() << " calls\n";
    RecordProperty("faults", faults);
}

INSTANTIATE_TEST_SUITE_P(Types, EachBlockFaultTest, testing::ValuesIn(cases),
                         support::case_name<Case>);

}  // namespace
}  // namespace faults
