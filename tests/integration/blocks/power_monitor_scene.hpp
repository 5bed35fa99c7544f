#pragma once

#include "tests/integration/blocks/scene.hpp"

namespace test {

/// A PowerMonitor that wants 12, of a camera that receives 25.
class PowerMonitorScene : public BlockScene {
  protected:
    PowerMonitorScene()
        : BlockScene({"com.tarlo.PowerControl.Status", "Get",
                      "[blocks.monitor]\ntype = \"PowerMonitor\"\nrequested_power = 12\n"}) {}
};

// The pieces that the traffic of the monitor is made of.

inline const std::string property_rule =
    "type='signal',interface='org.freedesktop.DBus.Properties',"
    "path='/com/tarlo/PowerControl/Status',member='PropertiesChanged'";
inline const std::string get_call =
    R"(client calls service: Get("com.tarlo.PowerControl.Status", "PowerReceived"))";

/// The value is read.
inline Lines gets(const std::string& power, const std::string& service = "service") {
    return {get_call, service + " replies to client: (" + power + ")"};
}

/// The signal of a change.
inline Lines changes(const std::string& power, const std::string& service = "service") {
    return {service + R"( signals: PropertiesChanged("com.tarlo.PowerControl.Status", )" +
            R"({"PowerReceived":)" + power + "}, [])"};
}

inline const Lines power_monitor_leaves = removes_match(property_rule) + host_leaves;

inline std::string outcome_event(const std::string& outcome) {
    return output_event("monitor.power_ok_out", "bool", outcome);
}

inline std::string power_setup_event(const std::string& outcome) {
    return R"({"event":"setup","block":"monitor","settings":{"power_ok":)" + outcome +
           R"(,"termination_cfg.inports":["power_monitor_in"],)"
           R"("termination_cfg.types":["/prefix/well-known.b/bool"],)"
           R"("termination_cfg.power_monitor_in_def":)" +
           outcome + "}}";
}

}  // namespace test
