#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "camera/scenario/condition.hpp"
#include "camera/service/fault_rules.hpp"
#include "camera/service/reply_script.hpp"
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

/// A value of the camera, or of a host on the camera's bus.
struct ExpectedValue {
    enum class Source {
        state,   ///< a value of the camera: "temperature.main"
        output,  ///< a port of a host: "guard.temperature_ok_out"
        log,     ///< the log lines of a host's block: "guard"
        status,  ///< a part of the status of a host's block: "supply.waits_for"
    };

    Source source = Source::state;
    std::string name;
    std::string host{};  ///< bus name of the host; empty for a value of the camera
    Condition condition{};
};

/// Waits for a call or a value; the scenario fails when it does not come within the time.
struct Expectation {
    std::variant<ExpectedCall, ExpectedValue> what;
    Seconds within{5.0};
    bool absent = false;  ///< waits all the time; the scenario fails when it comes

    /// "a call of GetTemperature(3, "main") within 5 s".
    [[nodiscard]] std::string description() const;
};

/// Answers a call of a client in place of the service. The step waits for the call; the service
/// does not answer calls that a later step answers.
struct Reply {
    ScriptedReply reply;
    Seconds within{5.0};  ///< how long the step waits for the call before the scenario goes on
};

/// Sends a signal, or calls a method of a client.
struct Send {
    ScriptedMessage message;
};

using Action = std::variant<Say, SetValue, Ramp, ServiceCommand, SetFault, ClearFault, Press,
                            RunProgram, Expectation, Reply, Send>;

/// Actions at one time, in file order.
struct Step {
    common::SourceLocation location;
    std::optional<Seconds> at;     ///< since the scenario began
    std::optional<Seconds> after;  ///< since the previous step was done
    std::vector<Action> actions;
};

struct Scenario {
    std::string file;  ///< path, as the user typed it
    std::vector<Step> steps{};
    std::optional<Seconds> timeout{};  ///< after which the scenario fails
    std::set<std::string> down{};      ///< services that a step or a call brings up
    /// The services that a call brings up; nothing for all.
    std::optional<std::set<std::string>> activatable{};
};

}  // namespace camera
