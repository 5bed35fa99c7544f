#include "camera/scenario/player.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "camera/bus/message_json.hpp"

namespace camera {
namespace {

/// The calls that are kept for an expectation; older ones are dropped.
constexpr std::size_t max_calls = 10000;
/// The calls that are listed when an expectation fails.
constexpr std::size_t max_listed_calls = 10;
/// The time that a program of a step may take.
constexpr std::chrono::seconds program_timeout{30};

std::string call_text(const CallRecord& call) {
    return fmt::format("{}({})", call.member, arguments_text(*call.arguments));
}

std::chrono::microseconds microseconds(Seconds seconds) {
    return std::chrono::duration_cast<std::chrono::microseconds>(seconds);
}

template <class... Each>
struct Overloaded : Each... {
    using Each::operator()...;
};
template <class... Each>
Overloaded(Each...) -> Overloaded<Each...>;

}  // namespace

ScenarioPlayer::ScenarioPlayer(const Scenario& scenario, Camera& camera, EventLog& event_log,
                               sd_event& event, Reaper& reaper, Ended ended)
    : scenario_(scenario),
      camera_(camera),
      event_log_(event_log),
      reaper_(reaper),
      ended_(std::move(ended)),
      ramps_(
          event,
          [this](const std::string& name, double value) {
              guarded([&] { camera_.set(name, common::Json(value).dump()); });
          },
          [this] { end_when_over(); }),
      timer_(event) {
    camera_.set_observers(
        {[this](const CallRecord& call) { on_call(call); }, [this] { check_expectation(); }});
}

void ScenarioPlayer::enter(State state) {
    timer_.clear();
    if (std::exchange(state_, state) == State::waiting && state == State::acting)
        event_log_.step(step_ + 1, location());
}

void ScenarioPlayer::start() {
    begin_ = previous_done_ = Clock::now();
    schedule_step();
}

void ScenarioPlayer::schedule_step() {
    if (step_ == scenario_.steps.size()) {
        enter(State::finishing);
        timer_.once({}, [this] { end_when_over(); });
        return;
    }
    const Step& step = scenario_.steps[step_];
    Clock::time_point when = previous_done_;
    if (step.at)
        when = begin_ + microseconds(*step.at);
    else if (step.after)
        when = previous_done_ + microseconds(*step.after);
    const auto delay = std::chrono::duration_cast<std::chrono::microseconds>(when - Clock::now());
    enter(State::waiting);
    timer_.once(std::max(delay, std::chrono::microseconds(0)), [this] { begin_step(); });
}

void ScenarioPlayer::begin_step() {
    enter(State::acting);
    action_ = 0;
    guarded([this] { run_actions(); });
}

void ScenarioPlayer::run_actions() {
    for (; action_ < actions().size(); ++action_) {
        if (!run(actions()[action_]))
            return;
    }
    end_step();
}

bool ScenarioPlayer::run(const Action& action) {
    bool done = true;
    std::visit(Overloaded{
                   [this](const Say& say) { event_log_.say(step_ + 1, say.text); },
                   [this](const SetValue& set) {
                       ramps_.cancel(set.name);
                       camera_.set(set.name, set.text);
                   },
                   [this](const Ramp& ramp) {
                       const common::Json from = camera_.value(ramp.name);
                       ramps_.start(ramp, from.is_number()
                                              ? from.get<double>()
                                              : std::numeric_limits<double>::quiet_NaN());
                   },
                   [this](const ServiceCommand& command) { change_service(command); },
                   [this](const SetFault& fault) { camera_.fail(fault.rule); },
                   [this](const ClearFault& fault) { camera_.clear_fault(fault.target); },
                   [this](const Press& press) { camera_.press(press.button); },
                   [&](const RunProgram& program) {
                       done = false;
                       run_program(program.command);
                   },
                   [&](const Expectation& expectation) { done = expect(expectation); },
               },
               action);
    return done;
}

void ScenarioPlayer::change_service(const ServiceCommand& command) {
    switch (command.verb) {
        case ServiceCommand::Verb::start:
            return camera_.start(command.service);
        case ServiceCommand::Verb::stop:
            return camera_.stop(command.service);
        case ServiceCommand::Verb::restart:
            return camera_.restart(command.service);
    }
}

void ScenarioPlayer::run_program(const std::vector<std::string>& command) {
    const std::string& program = command.front();
    program_ =
        std::make_unique<Child>(reaper_, command, camera_.address(),
                                [this, program](int status) { program_ended(program, status); });
    enter(State::running);
    timer_.once(program_timeout, [this, program] {
        program_.reset();
        fail(common::ExitCode::expectation_failed,
             fmt::format("'{}' did not end within {} s", program, program_timeout.count()));
    });
}

void ScenarioPlayer::program_ended(const std::string& program, int status) {
    if (state_ != State::running)
        return;
    if (status == 0)
        next_action();
    else
        fail(common::ExitCode::expectation_failed,
             fmt::format("'{}' ended with exit code {}", program, status));
}

bool ScenarioPlayer::expect(const Expectation& expectation) {
    if (met(expectation))
        return true;
    enter(State::expecting);
    timer_.once(microseconds(expectation.within),
                [this, &expectation] { expectation_timed_out(expectation); });
    return false;
}

void ScenarioPlayer::expectation_timed_out(const Expectation& expectation) {
    common::Json calls = common::Json::array();
    for (const CallRecord& call : calls_)
        calls.push_back(call_text(call));
    const std::string expected = expectation.description();
    event_log_.expectation(step_ + 1, location(), expected, false, calls);
    fail(common::ExitCode::expectation_failed,
         fmt::format("expected {}; {}", expected, calls_text()));
}

void ScenarioPlayer::next_action() {
    ++action_;
    enter(State::acting);
    // From the loop, because this runs within a callback of the program or the service.
    timer_.once({}, [this] { guarded([this] { run_actions(); }); });
}

void ScenarioPlayer::end_step() {
    // A step with an expectation is done with the call that met it, which `met` has used up.
    const bool expected = std::ranges::any_of(actions(), [](const Action& action) {
        return std::holds_alternative<Expectation>(action);
    });
    if (!expected)
        calls_.clear();
    previous_done_ = Clock::now();
    ++step_;
    schedule_step();
}

void ScenarioPlayer::end_when_over() {
    if (state_ != State::finishing || !ramps_.idle())
        return;
    enter(State::ended);
    ended_(common::ExitCode::done, {});
}

void ScenarioPlayer::on_call(const CallRecord& call) {
    calls_.push_back(call);
    if (calls_.size() > max_calls)
        calls_.pop_front();
    check_expectation();
}

void ScenarioPlayer::check_expectation() {
    if (state_ == State::expecting && met(std::get<Expectation>(actions()[action_])))
        next_action();
}

bool ScenarioPlayer::met(const Expectation& expectation) {
    const auto* call = std::get_if<ExpectedCall>(&expectation.what);
    const auto* state = std::get_if<ExpectedState>(&expectation.what);
    const bool is_met = call != nullptr ? met(*call) : camera_.value(state->name) == *state->is;
    if (is_met)
        event_log_.expectation(step_ + 1, location(), expectation.description(), true, {});
    return is_met;
}

bool ScenarioPlayer::met(const ExpectedCall& expected) {
    const auto it = std::ranges::find_if(calls_, [&](const CallRecord& call) {
        return call.member == expected.member &&
               (expected.service.empty() || call.service == expected.service) &&
               (!expected.arguments || *call.arguments == *expected.arguments);
    });
    if (it == calls_.end())
        return false;
    calls_.erase(calls_.begin(), it + 1);
    return true;
}

std::string ScenarioPlayer::calls_text() const {
    if (calls_.empty())
        return "no calls received";
    const std::size_t listed = std::min(calls_.size(), max_listed_calls);
    std::string text =
        listed < calls_.size()
            ? fmt::format("the last {} of {} calls received: ", listed, calls_.size())
            : "calls received: ";
    for (std::size_t i = calls_.size() - listed; i < calls_.size(); ++i)
        text.append(i + listed == calls_.size() ? "" : ", ").append(call_text(calls_[i]));
    return text;
}

void ScenarioPlayer::guarded(const std::function<void()>& commands) {
    try {
        commands();
    } catch (const CommandError& error) {
        fail(common::ExitCode::expectation_failed, error.what());
    } catch (const common::Failure& failure) {
        fail(failure.code(), failure.what());
    }
}

void ScenarioPlayer::fail(common::ExitCode code, const std::string& sentence) {
    if (state_ == State::ended)
        return;
    enter(State::ended);
    ended_(code, fmt::format("{}: {}", location(), sentence));
}

std::string ScenarioPlayer::location() const {
    const std::size_t step = std::min(step_, scenario_.steps.size() - 1);
    const common::SourceLocation place = scenario_.steps[step].location;
    return fmt::format("{}:{}:{}", scenario_.file, place.line, place.column);
}

}  // namespace camera
