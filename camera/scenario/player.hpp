#pragma once

#include <systemd/sd-event.h>

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "camera/bus/timers.hpp"
#include "camera/camera/camera.hpp"
#include "camera/process/child.hpp"
#include "camera/process/reaper.hpp"
#include "camera/scenario/ramps.hpp"
#include "camera/scenario/scenario.hpp"
#include "camera/service/event_log.hpp"
#include "common/process/exit_code.hpp"

namespace camera {

/// Plays a scenario on a camera that is up. All happens from the loop.
///
/// An expectation of a call looks at the calls since the step before was done; a step that itself
/// expects a call is done with that call, so what came right behind it counts for the next one. An
/// expectation of a state is met at once where the state is so already.
class ScenarioPlayer {
  public:
    /// Called once, from the loop, when the scenario has ended: with `done`, or with the code and
    /// the sentence that says what went wrong.
    using Ended = std::function<void(common::ExitCode code, const std::string& sentence)>;

    /// Camera, event log, event and reaper must outlive the player, which observes the camera.
    ScenarioPlayer(const Scenario& scenario, Camera& camera, EventLog& event_log, sd_event& event,
                   Reaper& reaper, Ended ended);
    ~ScenarioPlayer() { camera_.set_observers({}); }
    ScenarioPlayer(const ScenarioPlayer&) = delete;
    ScenarioPlayer& operator=(const ScenarioPlayer&) = delete;

    /// Begins: from here on the times of the steps count.
    void start();

  private:
    using Clock = std::chrono::steady_clock;

    void schedule_step();
    void begin_step();
    /// Does the actions of the step from the current one on, up to one that takes its time.
    void go_on();
    /// Whether the action is over; an expectation may not be, and a program never is.
    bool done(const Action& action);
    void run_program(const std::vector<std::string>& command);
    void program_ended(const std::string& program, int status);
    void next_action();
    void step_done();
    void end_when_over();

    void heard(const CallRecord& call);
    void look();
    [[nodiscard]] bool met(const Expectation& expectation);
    [[nodiscard]] bool met(const ExpectedCall& expected);
    [[nodiscard]] std::string calls_text() const;

    /// Runs `what`; where a verb refuses, the scenario fails at the current step.
    void guarded(const std::function<void()>& what);
    void fail(common::ExitCode code, const std::string& sentence);
    [[nodiscard]] std::string location() const;

    const Scenario& scenario_;
    Camera& camera_;
    EventLog& event_log_;
    Reaper& reaper_;
    Ended ended_;
    Ramps ramps_;
    Timers timers_;    // what comes next
    Timers deadline_;  // the end of the waiting
    Clock::time_point begin_;
    Clock::time_point previous_done_;
    std::size_t step_ = 0;
    std::size_t action_ = 0;
    const Expectation* awaited_ = nullptr;
    std::unique_ptr<Child> program_;  // the last one that was run
    std::deque<CallRecord> calls_;    // that no expectation has used up
};

}  // namespace camera
