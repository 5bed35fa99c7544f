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

/// The blocks' friend in the tests.
struct LayoutProbe {
    static OwnerState& state(DBusClient& client) { return client.state; }
    static sd_bus_slot** match_slot_field(DBusClient& client) {
        return as_field(client.match_slot);
    }
    static sd_bus_slot** call_slot_field(DBusClient& client) { return as_field(client.call_slot); }
    static sd_bus_slot** match_slot_field(TemperatureReader& reader) {
        return as_field(reader.match_slot);
    }
    static sd_bus_slot** call_slot_field(TemperatureReader& reader) {
        return as_field(reader.call_slot);
    }
    static bool match_added(const TemperatureReader& reader) { return reader.match_added; }
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
    static sd_bus_slot** call_slot_field(TemperatureMonitor& monitor) {
        return as_field(monitor.call_slot);
    }
    static bool owner_match_added(const TemperatureMonitor& monitor) {
        return monitor.owner_match_added;
    }
    static bool signal_match_added(const TemperatureMonitor& monitor) {
        return monitor.signal_match_added;
    }
    static const auto& registered(const TemperatureMonitor& monitor) { return monitor.registered; }
    static const auto& signal_ids(const TemperatureMonitor& monitor) { return monitor.signal_ids; }
    static const auto& pending_signals(const TemperatureMonitor& monitor) {
        return monitor.pending_signals;
    }
    static bool stopped(const TemperatureMonitor& monitor) { return monitor.stopped; }
    static std::uint32_t registering_index(const TemperatureMonitor& monitor) {
        return monitor.registering_index;
    }
    static void register_limit(TemperatureMonitor& monitor, std::size_t limit) {
        monitor.register_limit(limit);
    }

    static const sd_bus_vtable* exported_methods() { return PowerConsumer::exported_methods; }
    static sd_bus*& bus(PowerConsumer& consumer) { return consumer.bus; }
    static sd_bus_slot** match_slot_field(PowerConsumer& consumer) {
        return as_field(consumer.match_slot);
    }
    static sd_bus_slot** call_slot_field(PowerConsumer& consumer) {
        return as_field(consumer.call_slot);
    }
    static std::atomic<bool>& registered(PowerConsumer& consumer) { return consumer.registered; }
    static std::atomic<bool>& power_requested(PowerConsumer& consumer) {
        return consumer.power_requested;
    }
    static std::atomic<float>& granted_power(PowerConsumer& consumer) {
        return consumer.granted_power;
    }
    static sd_bus_slot** match_slot_field(PowerMonitor& monitor) {
        return as_field(monitor.match_slot);
    }
    static sd_bus_slot** call_slot_field(PowerMonitor& monitor) {
        return as_field(monitor.call_slot);
    }
    static std::atomic<double>& received_power(PowerMonitor& monitor) {
        return monitor.received_power;
    }
    static int retry_count(const PowerMonitor& monitor) { return monitor.retry_count; }
    static bool match_added(const PowerMonitor& monitor) { return monitor.match_added; }
    static bool value_received(const PowerMonitor& monitor) { return monitor.value_received; }
    static bool stopped(const PowerMonitor& monitor) { return monitor.stopped; }

    static ControlsState& state(OnScreenControls& controls) { return controls.state; }
    static bool& wdr(OnScreenControls& controls) { return controls.wdr; }
    static sd_bus_slot** match_slot_field(OnScreenControls& controls) {
        return as_field(controls.match_slot);
    }
    static sd_bus_slot** call_slot_field(OnScreenControls& controls) {
        return as_field(controls.call_slot);
    }
    static auto& pending_feature(OnScreenControls& controls) { return controls.pending_feature; }
    static auto& added_features(OnScreenControls& controls) { return controls.added_features; }
    static auto& listed_features(OnScreenControls& controls) { return controls.listed_features; }
    static sd_bus*& bus(PrioritizedTextOverlaySetter& setter) { return setter.bus; }
    static std::atomic<bool>& overlay_set(PrioritizedTextOverlaySetter& setter) {
        return setter.overlay_set;
    }
    static sd_bus_slot** call_slot_field(PrioritizedTextOverlaySetter& setter) {
        return as_field(setter.call_slot);
    }
    static bool pending(const VideoReady& block) { return block.pending; }
    static bool& enabled(VideoReady& block) { return block.enabled; }
    static Fenwa::EventPort& resend(VideoReady& block) { return *block.resend; }

    static std::vector<MemberPlace> members(const DBusClient& client) {
        return {place(client, "event port", client.event_port),
                place(client, "service name", client.service_name),
                place(client, "match slot", client.match_slot),
                place(client, "call slot", client.call_slot), place(client, "state", client.state)};
    }
    static std::vector<MemberPlace> members(const TemperatureReader& reader) {
        return {place(reader, "temperature_out", reader.temperature_out),
                place(reader, "sensor_name", reader.sensor_name),
                place(reader, "sensor_id", reader.sensor_id),
                place(reader, "match_added", reader.match_added),
                place(reader, "delta", reader.delta),
                place(reader, "change_signal_id", reader.change_signal_id),
                place(reader, "fake_mutex", reader.fake_mutex),
                place(reader, "temperature", reader.temperature),
                place(reader, "fake_temperature", reader.fake_temperature),
                place(reader, "match_slot", reader.match_slot),
                place(reader, "call_slot", reader.call_slot)};
    }
    static std::vector<MemberPlace> members(const TemperatureMonitor& monitor) {
        return {place(monitor, "event port", monitor.event_port),
                place(monitor, "temperature_ok_out", monitor.temperature_ok_out),
                place(monitor, "signal_match_slot", monitor.signal_match_slot),
                place(monitor, "owner_match_slot", monitor.owner_match_slot),
                place(monitor, "call_slot", monitor.call_slot),
                place(monitor, "registering_index", monitor.registering_index),
                place(monitor, "thresholds", monitor.thresholds),
                place(monitor, "owner_match_added", monitor.owner_match_added),
                place(monitor, "signal_match_added", monitor.signal_match_added),
                place(monitor, "registered", monitor.registered),
                place(monitor, "pending_signals", monitor.pending_signals),
                place(monitor, "sensor_id", monitor.sensor_id),
                place(monitor, "signal_ids", monitor.signal_ids),
                place(monitor, "temperature_ok", monitor.temperature_ok),
                place(monitor, "stopped", monitor.stopped)};
    }
    static std::vector<MemberPlace> members(const PowerConsumer& consumer) {
        return {place(consumer, "timer_in", consumer.timer_in),
                place(consumer, "power_out", consumer.power_out),
                place(consumer, "event_port", consumer.event_port),
                place(consumer, "channel", consumer.channel),
                place(consumer, "service_name", consumer.service_name),
                place(consumer, "consumer_name", consumer.consumer_name),
                place(consumer, "power_request", consumer.power_request),
                place(consumer, "bus", consumer.bus),
                place(consumer, "match_slot", consumer.match_slot),
                place(consumer, "call_slot", consumer.call_slot),
                place(consumer, "registered", consumer.registered),
                place(consumer, "power_requested", consumer.power_requested),
                place(consumer, "granted_power", consumer.granted_power)};
    }
    static std::vector<MemberPlace> members(const PowerMonitor& monitor) {
        return {place(monitor, "power_ok_out", monitor.power_ok_out),
                place(monitor, "event_port", monitor.event_port),
                place(monitor, "match_slot", monitor.match_slot),
                place(monitor, "call_slot", monitor.call_slot),
                place(monitor, "requested_power", monitor.requested_power),
                place(monitor, "received_power", monitor.received_power),
                place(monitor, "match_added", monitor.match_added),
                place(monitor, "value_received", monitor.value_received),
                place(monitor, "stopped", monitor.stopped),
                place(monitor, "retry_count", monitor.retry_count)};
    }
    static std::vector<MemberPlace> members(const OnScreenControls& controls) {
        return {place(controls, "event_port", controls.event_port),
                place(controls, "match_slot", controls.match_slot),
                place(controls, "call_slot", controls.call_slot),
                place(controls, "state", controls.state),
                place(controls, "channel", controls.channel),
                place(controls, "wdr", controls.wdr),
                place(controls, "pending_feature", controls.pending_feature),
                place(controls, "feature_id", controls.feature_id),
                place(controls, "language", controls.language),
                place(controls, "added_features", controls.added_features),
                place(controls, "listed_features", controls.listed_features)};
    }
    static std::vector<MemberPlace> members(const PrioritizedTextOverlaySetter& setter) {
        return {place(setter, "bus", setter.bus), place(setter, "text", setter.text),
                place(setter, "duration", setter.duration),
                place(setter, "overlay_set", setter.overlay_set),
                place(setter, "call_slot", setter.call_slot)};
    }
    static std::vector<MemberPlace> members(const VideoReady& block) {
        return {place(block, "rotation_vip0_in", block.rotation_vip0_in),
                place(block, "rotation_vip1_in", block.rotation_vip1_in),
                place(block, "resend", block.resend),
                place(block, "channel", block.channel),
                place(block, "pending", block.pending),
                place(block, "enabled", block.enabled)};
    }

  private:
    static sd_bus_slot** as_field(Slot& slot) { return reinterpret_cast<sd_bus_slot**>(&slot); }

    template <class Object, class Member>
    static MemberPlace place(const Object& object, std::string name, const Member& member) {
        const auto* const begin = reinterpret_cast<const char*>(&object);
        const auto offset = reinterpret_cast<const char*>(&member) - begin;
        return {std::move(name), static_cast<std::size_t>(offset), sizeof(Member), alignof(Member)};
    }
};

}  // namespace blocks
