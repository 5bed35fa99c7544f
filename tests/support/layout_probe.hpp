#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "src/blocks/power/power_consumer.hpp"
#include "src/blocks/power/power_monitor.hpp"
#include "src/blocks/temperature/temperature_monitor.hpp"
#include "src/blocks/temperature/temperature_reader.hpp"
#include "src/blocks/video/on_screen_controls.hpp"
#include "src/blocks/video/prioritized_text_overlay_setter.hpp"
#include "src/blocks/video/video_ready.hpp"
#include "src/frame/dbus_client.hpp"

namespace blocks {

/// Where a member stands within its object.
struct MemberPlace {
    std::string name;
    std::size_t offset;
    std::size_t size;
    std::size_t alignment;
};

/// The blocks' friend in the tests. An accessor serves every block that has the member.
struct LayoutProbe {
    static auto& state(auto& block) { return block.state; }
    static auto& bus(auto& block) { return block.bus; }
    static bool stopped(const auto& block) { return block.stopped; }
    static bool match_added(const auto& block) { return block.match_added; }
    static auto& registered(auto& block) { return block.registered; }
    static sd_bus_slot** match_slot_field(auto& block) { return as_field(block.match_slot); }
    static sd_bus_slot** call_slot_field(auto& block) { return as_field(block.call_slot); }

    static std::int32_t sensor_id(const TemperatureReader& reader) { return reader.sensor_id; }
    static std::int32_t change_signal_id(const TemperatureReader& reader) {
        return reader.change_signal_id;
    }
    static auto& temperature(TemperatureReader& reader) { return reader.temperature; }
    static auto& fake_temperature(TemperatureReader& reader) { return reader.fake_temperature; }
    static auto* fake_mutex(TemperatureReader& reader) { return reader.fake_mutex.native_handle(); }

    static sd_bus_slot** owner_match_slot_field(TemperatureMonitor& monitor) {
        return as_field(monitor.owner_match_slot);
    }
    static sd_bus_slot** signal_match_slot_field(TemperatureMonitor& monitor) {
        return as_field(monitor.signal_match_slot);
    }
    static bool owner_match_added(const TemperatureMonitor& monitor) {
        return monitor.owner_match_added;
    }
    static bool signal_match_added(const TemperatureMonitor& monitor) {
        return monitor.signal_match_added;
    }
    static const auto& signal_ids(const TemperatureMonitor& monitor) { return monitor.signal_ids; }
    static const auto& pending_signals(const TemperatureMonitor& monitor) {
        return monitor.pending_signals;
    }
    static std::uint32_t registering_index(const TemperatureMonitor& monitor) {
        return monitor.registering_index;
    }
    static void register_limit(TemperatureMonitor& monitor, std::size_t limit) {
        monitor.register_limit(limit);
    }

    static const sd_bus_vtable* exported_methods() { return PowerConsumer::exported_methods; }
    static auto& power_requested(PowerConsumer& consumer) { return consumer.power_requested; }
    static auto& granted_power(PowerConsumer& consumer) { return consumer.granted_power; }
    static auto& received_power(PowerMonitor& monitor) { return monitor.received_power; }
    static int retry_count(const PowerMonitor& monitor) { return monitor.retry_count; }
    static bool value_received(const PowerMonitor& monitor) { return monitor.value_received; }

    static bool& wdr(OnScreenControls& controls) { return controls.wdr; }
    static auto& pending_feature(OnScreenControls& controls) { return controls.pending_feature; }
    static auto& added_features(OnScreenControls& controls) { return controls.added_features; }
    static auto& listed_features(OnScreenControls& controls) { return controls.listed_features; }
    static auto& overlay_set(PrioritizedTextOverlaySetter& setter) { return setter.overlay_set; }
    static bool pending(const VideoReady& block) { return block.pending; }
    static bool& enabled(VideoReady& block) { return block.enabled; }
    static Fenwa::EventPort& resend(VideoReady& block) { return *block.resend; }

    static std::vector<MemberPlace> members(const DBusClient& client) {
        return places(client, {"event port", "service name", "match slot", "call slot", "state"},
                      client.event_port, client.service_name, client.match_slot, client.call_slot,
                      client.state);
    }
    static std::vector<MemberPlace> members(const TemperatureReader& reader) {
        return places(reader,
                      {"temperature_out", "sensor_name", "sensor_id", "match_added", "delta",
                       "change_signal_id", "fake_mutex", "temperature", "fake_temperature",
                       "match_slot", "call_slot"},
                      reader.temperature_out, reader.sensor_name, reader.sensor_id,
                      reader.match_added, reader.delta, reader.change_signal_id, reader.fake_mutex,
                      reader.temperature, reader.fake_temperature, reader.match_slot,
                      reader.call_slot);
    }
    static std::vector<MemberPlace> members(const TemperatureMonitor& monitor) {
        return places(monitor,
                      {"event port", "temperature_ok_out", "signal_match_slot", "owner_match_slot",
                       "call_slot", "registering_index", "thresholds", "owner_match_added",
                       "signal_match_added", "registered", "pending_signals", "sensor_id",
                       "signal_ids", "temperature_ok", "stopped"},
                      monitor.event_port, monitor.temperature_ok_out, monitor.signal_match_slot,
                      monitor.owner_match_slot, monitor.call_slot, monitor.registering_index,
                      monitor.thresholds, monitor.owner_match_added, monitor.signal_match_added,
                      monitor.registered, monitor.pending_signals, monitor.sensor_id,
                      monitor.signal_ids, monitor.temperature_ok, monitor.stopped);
    }
    static std::vector<MemberPlace> members(const PowerConsumer& consumer) {
        return places(consumer,
                      {"timer_in", "power_out", "event_port", "channel", "service_name",
                       "consumer_name", "power_request", "bus", "match_slot", "call_slot",
                       "registered", "power_requested", "granted_power"},
                      consumer.timer_in, consumer.power_out, consumer.event_port, consumer.channel,
                      consumer.service_name, consumer.consumer_name, consumer.power_request,
                      consumer.bus, consumer.match_slot, consumer.call_slot, consumer.registered,
                      consumer.power_requested, consumer.granted_power);
    }
    static std::vector<MemberPlace> members(const PowerMonitor& monitor) {
        return places(monitor,
                      {"power_ok_out", "event_port", "match_slot", "call_slot", "requested_power",
                       "received_power", "match_added", "value_received", "stopped", "retry_count"},
                      monitor.power_ok_out, monitor.event_port, monitor.match_slot,
                      monitor.call_slot, monitor.requested_power, monitor.received_power,
                      monitor.match_added, monitor.value_received, monitor.stopped,
                      monitor.retry_count);
    }
    static std::vector<MemberPlace> members(const OnScreenControls& controls) {
        return places(
            controls,
            {"event_port", "match_slot", "call_slot", "state", "channel", "wdr", "pending_feature",
             "feature_id", "language", "added_features", "listed_features"},
            controls.event_port, controls.match_slot, controls.call_slot, controls.state,
            controls.channel, controls.wdr, controls.pending_feature, controls.feature_id,
            controls.language, controls.added_features, controls.listed_features);
    }
    static std::vector<MemberPlace> members(const PrioritizedTextOverlaySetter& setter) {
        return places(setter, {"bus", "text", "duration", "overlay_set", "call_slot"}, setter.bus,
                      setter.text, setter.duration, setter.overlay_set, setter.call_slot);
    }
    static std::vector<MemberPlace> members(const VideoReady& block) {
        return places(
            block,
            {"rotation_vip0_in", "rotation_vip1_in", "resend", "channel", "pending", "enabled"},
            block.rotation_vip0_in, block.rotation_vip1_in, block.resend, block.channel,
            block.pending, block.enabled);
    }

  private:
    static sd_bus_slot** as_field(Fenwa::Slot& slot) {
        return reinterpret_cast<sd_bus_slot**>(&slot);
    }

    template <class Object, class... Members>
    static std::vector<MemberPlace> places(const Object& object,
                                           const std::vector<std::string>& names,
                                           const Members&... members) {
        const auto offset = [&object](const void* member) {
            return static_cast<std::size_t>(static_cast<const char*>(member) -
                                            reinterpret_cast<const char*>(&object));
        };
        std::vector<MemberPlace> found;
        (found.push_back(
             {names.at(found.size()), offset(&members), sizeof(Members), alignof(Members)}),
         ...);
        return found;
    }
};

}  // namespace blocks
