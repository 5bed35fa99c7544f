#pragma once

#include <systemd/sd-event.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "camera/bus/timers.hpp"
#include "camera/camera/camera.hpp"
#include "camera/process/child.hpp"
#include "camera/scenario/observations.hpp"
#include "camera/scenario/ramps.hpp"
#include "camera/scenario/report.hpp"
#include "camera/scenario/scenario.hpp"
#include "camera/service/event_log.hpp"
#include "common/process/exit_code.hpp"

namespace camera {

/// Plays a scenario on a camera. Everything runs on the loop.
///
/// An expectation of a call looks at the calls since the previous step was done. A step that
/// expects a call is done with that call, so a call right after it counts for the next step. An
/// expectation of a value is met at once where the value is as expected already.
class ScenarioPlayer {
  public:
    /// Called once, from the loop, when the scenario has ended: with `done` and no sentence, or
    /// with the code and the sentence of what is wrong.
    using Ended = std::function<void(common::ExitCode code, const std::string& sentence)>;

    /// What a player works on, which outlives it.
    struct Place {
        Camera& camera;
        EventLog& event_log;
        sd_event& event;
        const ProgramPlace& programs;
        Report* report;  ///< null for none
    };

    /// Observes the camera, which need not be up: it may be called as soon as it is.
    ScenarioPlayer(const Scenario& scenario, Place place, Ended ended);
    ~ScenarioPlayer() { camera_.set_observers({}); }
    ScenarioPlayer(const ScenarioPlayer&) = delete;
    ScenarioPlayer& operator=(const ScenarioPlayer&) = delete;

    /// Begins the first step's waiting; "at" counts from here. The camera is up.
    /// @throws common::Failure (unavailable) when the bus cannot be reached.
    void start();

  private:
    using Clock = std::chrono::steady_clock;

    /// What the player waits for.
    enum class State {
        waiting,    ///< the time of the step
        acting,     ///< nothing: it runs the actions of the step
        expecting,  ///< the event or value that the action expects
        replying,   ///< the call that the action answers, or the time of the answer
        running,    ///< the end of the action's program
        finishing,  ///< the end of the last ramp, after the last step
        ended,      ///< nothing: `ended_` was called
    };

    /// Changes the state, drops the timer of the previous one, and logs a step that begins.
    void enter(State state);
    void schedule_step();
    void begin_step();
    /// Runs the actions of the step from the current one on, up to one that has to wait.
    void run_actions();
    /// Runs an action; false where it has to wait.
    bool run(const Action& action);
    void change_service(const ServiceCommand& command);
    void run_program(const std::vector<std::string>& command);
    void program_ended(const std::string& program, int status);
    [[nodiscard]] bool expect(const Expectation& expectation);
    void time_out(const Expectation& expectation);
    void answer(const Reply& reply);
    void release(std::size_t reply);
    void next_action();
    void end_step();
    void end_when_over();

    void on_call(const CallRecord& call);
    void on_arrival(std::size_t reply);
    void check_expectation();
    /// Whether the expectation is decided; uses up the call that meets it.
    [[nodiscard]] bool decide(const Expectation& expectation);
    void meet(const Expectation& expectation);
    void disappoint(const Expectation& expectation, const std::string& instead);
    [[nodiscard]] const std::vector<Action>& actions() const {
        return scenario_.steps[step_].actions;
    }

    /// Runs commands of the camera; where one throws, the scenario fails at the current step.
    void guarded(const std::function<void()>& commands);
    void fail(common::ExitCode code, const std::string& sentence);
    [[nodiscard]] std::string location() const;

    const Scenario& scenario_;
    Camera& camera_;
    EventLog& event_log_;
    sd_event& event_;
    const ProgramPlace& programs_;
    Report* report_;
    Ended ended_;
    Observations observations_;
    Ramps ramps_;
    Timers timer_;    // the one that ends the state
    Timers timeout_;  // of the whole scenario
    State state_ = State::waiting;
    Clock::time_point begin_;
    Clock::time_point previous_done_;
    Clock::time_point expecting_since_;
    std::size_t step_ = 0;
    std::size_t action_ = 0;
    std::size_t replies_ = 0;         // those whose turn has come
    std::unique_ptr<Child> program_;  // of the last action that runs one
};

}  // namespace camera
