#include "camera/scenario/player.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

namespace camera {
namespace {

/// The time that a program of a step may take.
constexpr std::chrono::seconds program_timeout{30};

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

ScenarioPlayer::ScenarioPlayer(const Scenario& scenario, Place place, Ended ended)
    : scenario_(scenario),
      camera_(place.camera),
      event_log_(place.event_log),
      event_(place.event),
      programs_(place.programs),
      report_(place.report),
      ended_(std::move(ended)),
      observations_(place.camera, place.event_log),
      ramps_(
          place.event,
          [this](const std::string& name, double value) {
              guarded([&] { camera_.set(name, common::Json(value).dump()); });
          },
          [this] { end_when_over(); }),
      timer_(place.event),
      timeout_(place.event) {
    camera_.set_observers(
        {[this](const CallRecord& call) { on_call(call); }, [this] { check_expectation(); }});
    for (const Step& step : scenario.steps) {
        for (const Action& action : step.actions) {
            if (const auto* reply = std::get_if<Reply>(&action))
                (void)camera_.script().add(reply->reply);
        }
    }
    camera_.script().set_observer([this](std::size_t reply) { on_arrival(reply); });
}

void ScenarioPlayer::enter(State state) {
    timer_.clear();
    if (std::exchange(state_, state) == State::waiting && state == State::acting)
        event_log_.step(step_ + 1, location());
}

void ScenarioPlayer::start() {
    observations_.open(
        scenario_, event_, [this] { check_expectation(); },
        [this] { fail(common::ExitCode::unavailable, "the connection to the bus was lost"); });
    begin_ = previous_done_ = Clock::now();
    if (scenario_.timeout)
        timeout_.once(microseconds(*scenario_.timeout), [this] {
            fail(common::ExitCode::expectation_failed,
                 fmt::format("the scenario takes longer than its timeout of {} s",
                             common::Json(scenario_.timeout->count()).dump()));
        });
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
                   [&](const Reply& reply) {
                       done = false;
                       answer(reply);
                   },
                   [this](const Send& send) { camera_.send(send.message); },
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
        std::make_unique<Child>(programs_, command, line_name(program),
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
    enter(State::expecting);
    expecting_since_ = Clock::now();
    observations_.follow(expectation);
    if (decide(expectation))
        return state_ == State::acting;
    timer_.once(microseconds(expectation.within), [this, &expectation] { time_out(expectation); });
    return false;
}

void ScenarioPlayer::time_out(const Expectation& expectation) {
    if (expectation.absent && observations_.can_be_absent(expectation)) {
        meet(expectation);
        next_action();
    } else {
        disappoint(expectation, observations_.instead_text(expectation));
    }
}

void ScenarioPlayer::answer(const Reply& reply) {
    enter(State::replying);
    const std::size_t number = replies_++;
    if (camera_.script().arrival(number))
        return release(number);
    timer_.once(microseconds(reply.within), [this, number, &reply] {
        event_log_.missing_call(step_ + 1, location(), reply.reply.member, reply.within.count());
        release(number);
    });
}

void ScenarioPlayer::on_arrival(std::size_t reply) {
    if (state_ == State::replying && reply + 1 == replies_)
        release(reply);
}

void ScenarioPlayer::release(std::size_t number) {
    timer_.clear();
    const auto arrival = camera_.script().arrival(number);
    const auto& reply = std::get<Reply>(actions()[action_]).reply;
    const auto delay = arrival ? std::chrono::duration_cast<std::chrono::microseconds>(
                                     *arrival + reply.after - Clock::now())
                               : std::chrono::microseconds(0);
    // From the loop, because this may run within the callback of the call.
    timer_.once(std::max(delay, std::chrono::microseconds(0)), [this, number] {
        guarded([&] {
            // A client may call again at once after the answer.
            observations_.forget_calls();
            camera_.script().release(number);
            next_action();
        });
    });
}

void ScenarioPlayer::next_action() {
    ++action_;
    enter(State::acting);
    // From the loop, because this runs within a callback of the program or the service.
    timer_.once({}, [this] { guarded([this] { run_actions(); }); });
}

void ScenarioPlayer::end_step() {
    // A step with an expectation or a reply is done with its call, which is used up already.
    const bool called = std::ranges::any_of(actions(), [](const Action& action) {
        return std::holds_alternative<Expectation>(action) || std::holds_alternative<Reply>(action);
    });
    if (!called)
        observations_.forget_calls();
    observations_.forget_values();
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
    observations_.add(call);
    check_expectation();
}

void ScenarioPlayer::check_expectation() {
    if (state_ == State::expecting && decide(std::get<Expectation>(actions()[action_])) &&
        state_ == State::acting)
        next_action();
}

bool ScenarioPlayer::decide(const Expectation& expectation) {
    const std::string refusal = observations_.refusal(expectation);
    if (!refusal.empty())
        disappoint(expectation, refusal);
    else if (!observations_.has_come(expectation))
        return false;
    else if (expectation.absent)
        disappoint(expectation, fmt::format("it came at {:.3f} s", event_log_.seconds()));
    else
        meet(expectation);
    return true;
}

void ScenarioPlayer::meet(const Expectation& expectation) {
    enter(State::acting);
    observations_.leave();
    if (report_ != nullptr)
        report_->result(expectation, Clock::now() - expecting_since_, {});
    event_log_.expectation(step_ + 1, location(), expectation.description(), true,
                           common::Json::object());
}

void ScenarioPlayer::disappoint(const Expectation& expectation, const std::string& instead) {
    const std::string sentence = fmt::format("expected {}; {}", expectation.description(), instead);
    if (report_ != nullptr)
        report_->result(expectation, Clock::now() - expecting_since_, sentence);
    event_log_.expectation(step_ + 1, location(), expectation.description(), false,
                           observations_.instead(expectation));
    observations_.leave();
    fail(common::ExitCode::expectation_failed, sentence);
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
