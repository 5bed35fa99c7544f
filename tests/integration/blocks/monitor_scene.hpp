#pragma once

#include "tests/integration/blocks/scene.hpp"

namespace test {

/// A graph of one TemperatureMonitor of sensor "main" with these further keys.
inline std::string monitor_with(const std::string& keys) {
    return "[blocks.monitor]\ntype = \"TemperatureMonitor\"\nsensor_name = \"main\"\n" + keys;
}

/// A TemperatureMonitor that goes on above 10 and off at 5 or below, off above 60 and on at 50 or
/// below.
class MonitorScene : public BlockScene {
  protected:
    MonitorScene()
        : BlockScene({"com.tarlo.TemperatureController", "RegisterForTemperatureSignal",
                      monitor_with("low_off_temp = 5\nlow_on_temp = 10\n"
                                   "high_on_temp = 50\nhigh_off_temp = 60\n")}) {}

    /// Starts the host and waits until its monitor has registered all its limits.
    void start_registered_host() {
        start_host();
        wait_for_replies("RegisterForTemperatureSignal", 4);
    }
};

// The pieces that the traffic of the monitor is made of.

inline const std::string signal_rule =
    "type='signal',sender='com.tarlo.TemperatureController',path='/com/tarlo/"
    "TemperatureController',"
    "interface='com.tarlo.TemperatureController',member='TemperatureSignal'";

/// The two calls while the block is built, with the temperature that they find.
inline Lines reads_first(const std::string& temperature) {
    return {R"(client calls service: GetTemperatureIdFromName("main"))",
            R"(service replies to client: (3))",
            R"(client calls service: GetTemperature(3, "main"))",
            "service replies to client: (" + temperature + ")"};
}

inline const Lines matches = adds_match(owner_rule) + adds_match(signal_rule);

/// The four limits are registered with `service`, which gives them numbers from `first` on; a
/// limit whose letter in `crossed` is "x" is crossed already.
inline Lines registers_limits(int first = 1, const std::string& crossed = "xx--",
                              const std::string& service = "service") {
    const char* const limits[] = {"10.0, true", "50.0, false", "5.0, false", "60.0, true"};
    Lines lines;
    for (std::size_t i = 0; i < crossed.size(); ++i) {
        lines.push_back("client calls service: RegisterForTemperatureSignal(3, " +
                        std::string(limits[i]) + ")");
        lines.push_back(service + " replies to client: (" +
                        std::to_string(first + static_cast<int>(i)) +
                        (crossed[i] == 'x' ? ", true)" : ", false)"));
    }
    return lines;
}

inline const Lines monitor_leaves =
    removes_match(signal_rule) + removes_match(owner_rule) + host_leaves;

inline std::string verdict_event(const std::string& verdict) {
    return output_event("monitor.temperature_ok_out", "bool", verdict);
}

inline std::string setup_event(const std::string& verdict) {
    return R"({"event":"setup","block":"monitor","settings":{"temperature_ok":)" + verdict +
           R"(,"termination_cfg.inports":["temp_monitor_in"],)"
           R"("termination_cfg.types":["/prefix/well-known.b/bool"],)"
           R"("termination_cfg.temp_monitor_in_def":)" +
           verdict + "}}";
}

inline std::string verdict_log(const std::string& verdict) {
    return log_event(4, "Setting temperature_ok_out = " + verdict);
}

}  // namespace test
