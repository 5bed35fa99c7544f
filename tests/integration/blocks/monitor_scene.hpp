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
        : BlockScene({"temperature", "com.tarlo.TemperatureController",
                      "RegisterForTemperatureSignal",
                      monitor_with("low_off_temp = 5\nlow_on_temp = 10\n"
                                   "high_on_temp = 50\nhigh_off_temp = 60\n")}) {}

    /// Starts the host, opening the scene before, and waits until its monitor has registered all
    /// its limits.
    void start_registered(Setting setting) {
        start(std::move(setting));
        wait_until_registered();
    }
    void start_registered() { start_registered(Setting{}); }
    void wait_until_registered() { wait_for_replies("RegisterForTemperatureSignal", 4); }
    void set_temperature(const std::string& temperature) { set("temperature.main", temperature); }
};

// The pieces that the traffic of the monitor is made of.

inline const std::string signal_rule =
    "type='signal',sender='com.tarlo.TemperatureController',path='/com/tarlo/"
    "TemperatureController',"
    "interface='com.tarlo.TemperatureController',member='TemperatureSignal'";

inline const std::string looks_up = R"(client calls service: GetTemperatureIdFromName("main"))";

/// The two calls while the block is built, with the temperature that they find.
inline Lines reads_first(const std::string& temperature) {
    return {looks_up, "service replies to client: (3)",
            R"(client calls service: GetTemperature(3, "main"))",
            "service replies to client: (" + temperature + ")"};
}

inline const Lines matches = adds_match(owner_rule) + adds_match(signal_rule);

/// The first limit is registered; the sensor's number is -1 where it is not known.
inline std::string registers_first(const std::string& sensor = "3") {
    return "client calls service: RegisterForTemperatureSignal(" + sensor + ", 10.0, true)";
}

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

/// The limit with this number is signalled as crossed.
inline Lines crosses(int number, const std::string& service = "service") {
    return {service + " signals: TemperatureSignal(" + std::to_string(number) + ")"};
}

inline const Lines monitor_leaves =
    removes_match(signal_rule) + removes_match(owner_rule) + host_leaves;

inline std::string verdict_event(const std::string& verdict) {
    return output_event("monitor.temperature_ok_out", "bool", verdict);
}
inline std::string verdict_log(const std::string& verdict) {
    return log_event(4, "Setting temperature_ok_out = " + verdict);
}
/// All events of a monitor that begins with this verdict, and then changes it to these.
inline Lines judges(const std::string& first, const Lines& then = {}) {
    Lines lines{verdict_setup_event("temperature_ok", "temp_monitor_in", first),
                verdict_event(first), ready_event};
    for (const std::string& verdict : then)
        lines = lines + Lines{verdict_log(verdict), verdict_event(verdict)};
    return lines + Lines{exit_event};
}
/// The same of one that leaves this log line after its start, and nothing more.
inline Lines judges_and_logs(const std::string& first, const std::string& line) {
    Lines lines = judges(first);
    lines.insert(lines.end() - 1, line);
    return lines;
}

}  // namespace test
