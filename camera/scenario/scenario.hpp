#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "camera/service/fault_rules.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/json.hpp"

namespace camera {

using Seconds = std::chrono::duration<double>;

/// The longest time of a scenario: a day.
inline constexpr Seconds max_scenario_time{24.0 * 3600.0};

/// Logs a sentence.
struct Say {
    std::string text;
};

/// Sets a value, as `fenwa-camera set` does.
struct SetValue {
    std::string name;
    std::string text;
};

/// Moves a value to `target` in steps of 0.1 s, while the scenario goes on.
struct Ramp {
    std::string name;
    double target = 0.0;
    Seconds over{0};
};

/// Starts, stops or restarts a service.
struct ServiceCommand {
    enum class Verb { start, stop, restart };

    Verb verb;
    std::string service;
};

/// Sets a fault rule.
struct SetFault {
    FaultRule rule;
};

/// Clears the fault rules of a member.
struct ClearFault {
    std::string target;
};

/// Presses a button.
struct Press {
    std::string button;
};

/// Runs a program on the camera's bus, such as `fenwa write`, and waits for its end. The scenario
/// fails when that takes longer than 30 s or the exit code is not 0.
struct RunProgram {
    std::vector<std::string> command;  ///< program, looked up in PATH, and arguments; not empty
};

/// A call of a member, by any client.
struct ExpectedCall {
    std::string service;  ///< empty: any service
    std::string member;
    common::SharedJson arguments;  ///< an array; null: any arguments
};

/// A value that is `is`.
struct ExpectedState {
    std::string name;
    common::SharedJson is;
};

/// Waits for a call or a state; the scenario fails when it does not come within the time.
struct Expectation {
    std::variant<ExpectedCall, ExpectedState> what;
    Seconds within{5.0};

    /// "a call of GetTemperature(3, "main") within 5 s".
    [[nodiscard]] std::string description() const;
};

using Action = std::variant<Say, SetValue, Ramp, ServiceCommand, SetFault, ClearFault, Press,
                            RunProgram, Expectation>;

/// Actions at one time, in file order.
struct Step {
    common::SourceLocation location;
    std::optional<Seconds> at;     ///< since the scenario began
    std::optional<Seconds> after;  ///< since the previous step was done
    std::vector<Action> actions;
};

struct Scenario {
    std::string file;  ///< path, as the user typed it
    std::vector<Step> steps;
};

}  // namespace camera
