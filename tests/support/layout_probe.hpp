#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "src/blocks/temperature/temperature_monitor.hpp"
#include "src/blocks/temperature/temperature_reader.hpp"
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
    static sd_bus_slot** owner_match_slot_field(TemperatureMonitor& monitor) {
        return as_field(monitor.owner_match_slot);
    }
    static sd_bus_slot** signal_match_slot_field(TemperatureMonitor& monitor) {
        return as_field(monitor.signal_match_slot);
    }
    static sd_bus_slot** call_slot_field(TemperatureMonitor& monitor) {
        return as_field(monitor.call_slot);
    }
    static std::uint32_t registering_index(const TemperatureMonitor& monitor) {
        return monitor.registering_index;
    }
    static void register_limit(TemperatureMonitor& monitor, std::size_t limit) {
        monitor.register_limit(limit);
    }

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
