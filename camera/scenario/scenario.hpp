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

/// The longest time that a scenario may name: a day.
inline constexpr Seconds max_scenario_time{24.0 * 3600.0};

/// A sentence for whoever reads along.
struct Say {
    std::string text;
};

/// Sets a value, as `fenwa-camera set` does.
struct SetValue {
    std::string name;
    std::string text;
};

/// Moves a value to `target` in steps of 0.1 s. The scenario goes on meanwhile.
struct Ramp {
    std::string name;
    double target = 0.0;
    Seconds over{0};
};

/// Starts, stops or restarts a service.
struct ServiceOrder {
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

/// Runs a program on the camera's bus and waits until it has ended, well and within 30 s: a client
/// that is part of the event log, such as `fenwa write`.
struct RunProgram {
    std::vector<std::string> command;  ///< program, looked up in PATH, and arguments; not empty
};

/// A call of this member, by anyone.
struct ExpectedCall {
    std::string service;  ///< empty: whichever
    std::string member;
    std::optional<common::Json> arguments;  ///< an array; nothing: whichever
};

/// A value that is as stated.
struct ExpectedState {
    std::string name;
    common::Json is;
};

/// Waits until what is expected has come; the scenario fails when it has not within the time.
struct Expectation {
    std::variant<ExpectedCall, ExpectedState> what;
    Seconds within{5.0};

    /// "a call of GetTemperature(3, "main") within 5 s".
    [[nodiscard]] std::string description() const;
};

using Action = std::variant<Say, SetValue, Ramp, ServiceOrder, SetFault, ClearFault, Press,
                            RunProgram, Expectation>;

/// What happens at one time, in the order in which it stands in the file.
struct Step {
    common::SourceLocation location;
    std::optional<Seconds> at;     ///< since the scenario began
    std::optional<Seconds> after;  ///< since the step before was done
    std::vector<Action> actions;
};

struct Scenario {
    std::string file;  ///< as the user typed it
    std::vector<Step> steps;
};

}  // namespace camera
