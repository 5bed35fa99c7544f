#include "camera/scenario/player.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "camera/bus/message_json.hpp"

namespace camera {
namespace {

/// So many calls are kept for an expectation; older ones are forgotten.
constexpr std::size_t max_calls = 10000;
/// So many are named when an expectation fails.
constexpr std::size_t max_calls_told = 10;
/// No program of a step may take longer.
constexpr std::chrono::seconds program_timeout{30};

std::string call_text(const CallRecord& call) {
    return fmt::format("{}({})", call.member, arguments_text(call.arguments));
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
      timers_(event),
      deadline_(event) {
    camera_.set_observers({[this](const CallRecord& call) { heard(call); }, [this] { look(); }});
}

void ScenarioPlayer::start() {
    begin_ = previous_done_ = Clock::now();
    schedule_step();
}

void ScenarioPlayer::schedule_step() {
    if (step_ == scenario_.steps.size()) {
        timers_.once({}, [this] { end_when_over(); });
        return;
    }
    const Step& step = scenario_.steps[step_];
    Clock::time_point when = previous_done_;
    if (step.at)
        when = begin_ + microseconds(*step.at);
    else if (step.after)
        when = previous_done_ + microseconds(*step.after);
    const auto delay = std::chrono::duration_cast<std::chrono::microseconds>(when - Clock::now());
    timers_.once(std::max(delay, std::chrono::microseconds(0)), [this] { begin_step(); });
}

void ScenarioPlayer::begin_step() {
    event_log_.step(step_ + 1, location());
    action_ = 0;
    guarded([this] { go_on(); });
}

void ScenarioPlayer::go_on() {
    const std::vector<Action>& actions = scenario_.steps[step_].actions;
    for (; action_ < actions.size(); ++action_) {
        if (!done(actions[action_]))
            return;
    }
    step_done();
}

bool ScenarioPlayer::done(const Action& action) {
    bool over = true;
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
                   [this](const ServiceOrder& order) {
                       switch (order.verb) {
                           case ServiceOrder::Verb::start:
                               return camera_.start(order.service);
                           case ServiceOrder::Verb::stop:
                               return camera_.stop(order.service);
                           case ServiceOrder::Verb::restart:
                               return camera_.restart(order.service);
                       }
                   },
                   [this](const SetFault& fault) { camera_.fail(fault.rule); },
                   [this](const ClearFault& fault) { camera_.clear_fault(fault.target); },
                   [this](const Press& press) { camera_.press(press.button); },
                   [&](const RunProgram& run) {
                       over = false;
                       run_program(run.command);
                   },
                   [&](const Expectation& expectation) {
                       over = met(expectation);
                       if (over)
                           return;
                       awaited_ = &expectation;
                       deadline_.once(microseconds(expectation.within), [this] {
                           const std::string expected = awaited_->description();
                           common::Json calls = common::Json::array();
                           for (const CallRecord& call : calls_)
                               calls.push_back(call_text(call));
                           event_log_.expectation(step_ + 1, location(), expected, false, calls);
                           fail(common::ExitCode::expectation_failed,
                                fmt::format("expected {}; {}", expected, calls_text()));
                       });
                   },
               },
               action);
    return over;
}

void ScenarioPlayer::run_program(const std::vector<std::string>& command) {
    program_ = std::make_unique<Child>(
        reaper_, command, camera_.address(),
        [this, program = command.front()](int status) { program_ended(program, status); });
    deadline_.once(program_timeout, [this, program = command.front()] {
        program_.reset();
        fail(common::ExitCode::expectation_failed,
             fmt::format("'{}' did not end within {} s", program, program_timeout.count()));
    });
}

void ScenarioPlayer::program_ended(const std::string& program, int status) {
    deadline_.clear();
    if (status == 0)
        next_action();
    else
        fail(common::ExitCode::expectation_failed,
             fmt::format("'{}' ended with exit code {}", program, status));
}

void ScenarioPlayer::next_action() {
    ++action_;
    // From the loop: this is within a callback of what has made the action over.
    timers_.once({}, [this] { guarded([this] { go_on(); }); });
}

void ScenarioPlayer::step_done() {
    const std::vector<Action>& actions = scenario_.steps[step_].actions;
    // A step with an expectation was done by the call that met it, and `met` has used that up.
    const bool expected = std::ranges::any_of(
        actions, [](const Action& action) { return std::holds_alternative<Expectation>(action); });
    if (!expected)
        calls_.clear();
    previous_done_ = Clock::now();
    ++step_;
    schedule_step();
}

void ScenarioPlayer::end_when_over() {
    if (step_ == scenario_.steps.size() && ramps_.idle() && ended_)
        std::exchange(ended_, nullptr)(common::ExitCode::done, {});
}

void ScenarioPlayer::heard(const CallRecord& call) {
    calls_.push_back(call);
    if (calls_.size() > max_calls)
        calls_.pop_front();
    look();
}

void ScenarioPlayer::look() {
    if (awaited_ == nullptr || !met(*awaited_))
        return;
    awaited_ = nullptr;
    deadline_.clear();
    next_action();
}

bool ScenarioPlayer::met(const Expectation& expectation) {
    const auto* call = std::get_if<ExpectedCall>(&expectation.what);
    const auto* state = std::get_if<ExpectedState>(&expectation.what);
    const bool is_met = call != nullptr ? met(*call) : camera_.value(state->name) == state->is;
    if (is_met)
        event_log_.expectation(step_ + 1, location(), expectation.description(), true, {});
    return is_met;
}

bool ScenarioPlayer::met(const ExpectedCall& expected) {
    const auto it = std::ranges::find_if(calls_, [&](const CallRecord& call) {
        return call.member == expected.member &&
               (expected.service.empty() || call.service == expected.service) &&
               (!expected.arguments || call.arguments == *expected.arguments);
    });
    if (it == calls_.end())
        return false;
    calls_.erase(calls_.begin(), it + 1);
    return true;
}

std::string ScenarioPlayer::calls_text() const {
    if (calls_.empty())
        return "no calls received";
    const std::size_t told = std::min(calls_.size(), max_calls_told);
    std::string text = told < calls_.size()
                           ? fmt::format("the last {} of {} calls received: ", told, calls_.size())
                           : "calls received: ";
    for (std::size_t i = calls_.size() - told; i < calls_.size(); ++i)
        text.append(i + told == calls_.size() ? "" : ", ").append(call_text(calls_[i]));
    return text;
}

void ScenarioPlayer::guarded(const std::function<void()>& what) {
    try {
        what();
    } catch (const CommandError& refusal) {
        fail(common::ExitCode::expectation_failed, refusal.what());
    } catch (const common::Failure& failure) {
        fail(failure.code(), failure.what());
    }
}

void ScenarioPlayer::fail(common::ExitCode code, const std::string& sentence) {
    timers_.clear();
    deadline_.clear();
    awaited_ = nullptr;
    if (ended_)
        std::exchange(ended_, nullptr)(code, fmt::format("{}: {}", location(), sentence));
}

std::string ScenarioPlayer::location() const {
    const std::size_t step = std::min(step_, scenario_.steps.size() - 1);
    const common::SourceLocation place = scenario_.steps[step].location;
    return fmt::format("{}:{}:{}", scenario_.file, place.line, place.column);
}

}  // namespace camera
