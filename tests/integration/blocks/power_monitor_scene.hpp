#pragma once

#include "tests/integration/blocks/scene.hpp"

namespace test {

/// A graph of one PowerMonitor that wants 12.
inline const std::string power_monitor =
    "[blocks.monitor]\ntype = \"PowerMonitor\"\nrequested_power = 12\n";

/// A PowerMonitor that wants 12, of a camera that receives 25.
class PowerMonitorScene : public BlockScene {
  protected:
    PowerMonitorScene()
        : BlockScene({"power-status", "com.tarlo.PowerControl.Status", "Get", power_monitor}) {}

    /// Starts the host, opening the scene before, and waits until it has read the power twice.
    void start_settled(Setting setting) {
        start(std::move(setting));
        wait_for_replies("Get", 2);
    }
    void start_settled() { start_settled(Setting{}); }
    void set_power(const std::string& power) { set("power.received", power); }

    /// A stranger's signal that the property has changed.
    template <class... Arguments>
    void emit_change(const char* types, Arguments... arguments) const {
        emit("/com/tarlo/PowerControl/Status", "org.freedesktop.DBus.Properties",
             "PropertiesChanged", types, arguments...);
    }
};

// The pieces that the traffic of the monitor is made of.

inline const std::string property_rule =
    "type='signal',interface='org.freedesktop.DBus.Properties',"
    "path='/com/tarlo/PowerControl/Status',member='PropertiesChanged'";
inline const std::string get_call =
    R"(client calls service: Get("com.tarlo.PowerControl.Status", "PowerReceived"))";

/// The value is read.
inline Lines gets(const std::string& power) {
    return {get_call, "service replies to client: (" + power + ")"};
}
inline const Lines power_monitor_starts =
    host_connects + gets("25.0") + adds_match(property_rule) + gets("25.0");

/// The signal of a change.
inline Lines changes(const std::string& power, const std::string& service = "service") {
    return {service + R"( signals: PropertiesChanged("com.tarlo.PowerControl.Status", )" +
            R"({"PowerReceived":)" + power + "}, [])"};
}

inline const Lines power_monitor_leaves = removes_match(property_rule) + host_leaves;

/// These verdicts are published, one after the other.
inline Lines outcomes(const Lines& verdicts, const std::string& block = "monitor") {
    Lines lines;
    for (const std::string& verdict : verdicts)
        lines.push_back(output_event(block + ".power_ok_out", "bool", verdict));
    return lines;
}
/// The match, the question and the answer each run the block, which publishes what it knows.
inline const Lines first_outcomes = outcomes({"true", "true", "true"});

/// All events of a monitor that has enough power, and then publishes these verdicts.
inline Lines power_events(const Lines& then) {
    return Lines{verdict_setup_event("power_ok", "power_monitor_in", "true"), ready_event} +
           first_outcomes + outcomes(then) + Lines{exit_event};
}

}  // namespace test
