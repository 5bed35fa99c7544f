#include "camera/scenario/observations.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "camera/bus/message_json.hpp"

namespace camera {
namespace {

using common::Json;

/// The calls that are kept for an expectation; older ones are dropped.
constexpr std::size_t max_calls = 10000;
/// The calls or values that are listed when an expectation fails.
constexpr std::size_t max_listed = 10;

std::string call_text(const CallRecord& call) {
    return fmt::format("{}({})", call.member, arguments_text(*call.arguments));
}

std::string seen_text(const SeenValue& seen) {
    return fmt::format("{} at {:.3f} s", common::json_line(*seen.value), seen.time);
}

/// "calls received: A, B", with the last ones only of many.
template <class List, class Text>
std::string listed(const List& list, const std::string& what, const Text& text_of) {
    if (list.empty())
        return "no " + what;
    const std::size_t count = std::min(list.size(), max_listed);
    std::string text = count < list.size()
                           ? fmt::format("the last {} of {} {}: ", count, list.size(), what)
                           : what + ": ";
    for (std::size_t i = list.size() - count; i < list.size(); ++i)
        text.append(i + count == list.size() ? "" : ", ").append(text_of(list[i]));
    return text;
}

template <class Visit>
void each_host_value(const Scenario& scenario, const Visit& visit) {
    for (const Step& step : scenario.steps) {
        for (const Action& action : step.actions) {
            const auto* expectation = std::get_if<Expectation>(&action);
            const auto* value =
                expectation == nullptr ? nullptr : std::get_if<ExpectedValue>(&expectation->what);
            if (value != nullptr && !value->host.empty())
                visit(*value);
        }
    }
}

}  // namespace

void Observations::open(const Scenario& scenario, sd_event& event,
                        const std::function<void()>& changed, const std::function<void()>& lost) {
    std::map<std::string, std::set<std::string>> ports;
    each_host_value(scenario,
                    [&](const ExpectedValue& value) { ports[value.host].insert(value.name); });
    for (const auto& [host, names] : ports)
        hosts_[host] = std::make_unique<HostWatch>(event, camera_.address(), host, names,
                                                   event_log_, changed, lost);
}

void Observations::add(const CallRecord& call) {
    calls_.push_back(call);
    if (calls_.size() > max_calls)
        calls_.pop_front();
}

HostWatch* Observations::host_of(const ExpectedValue& value) const {
    return value.host.empty() ? nullptr : hosts_.at(value.host).get();
}

void Observations::follow(const Expectation& expectation) {
    if (const auto* value = std::get_if<ExpectedValue>(&expectation.what)) {
        if (HostWatch* host = host_of(*value))
            host->follow(*value, since_);
    }
}

void Observations::leave() {
    for (const auto& [name, host] : hosts_)
        host->leave();
}

void Observations::forget_values() {
    since_ = event_log_.seconds();
    for (const auto& [name, host] : hosts_)
        host->forget();
}

bool Observations::has_come(const Expectation& expectation) {
    if (const auto* call = std::get_if<ExpectedCall>(&expectation.what))
        return has_come(*call);
    return has_come(std::get<ExpectedValue>(expectation.what));
}

bool Observations::has_come(const ExpectedCall& expected) {
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

bool Observations::has_come(const ExpectedValue& expected) const {
    const HostWatch* host = host_of(expected);
    if (host == nullptr)
        return expected.condition.met(camera_.value(expected.name));
    return host->latest() != nullptr && expected.condition.met(*host->latest());
}

std::string Observations::refusal(const Expectation& expectation) const {
    const auto* value = std::get_if<ExpectedValue>(&expectation.what);
    const HostWatch* host = value == nullptr ? nullptr : host_of(*value);
    return host == nullptr ? std::string{} : host->refusal();
}

bool Observations::can_be_absent(const Expectation& expectation) const {
    const auto* value = std::get_if<ExpectedValue>(&expectation.what);
    const HostWatch* host = value == nullptr ? nullptr : host_of(*value);
    return host == nullptr || host->answered();
}

std::vector<SeenValue> Observations::seen(const ExpectedValue& expected) const {
    const HostWatch* host = host_of(expected);
    if (host == nullptr)
        return {{event_log_.seconds(), common::share(camera_.value(expected.name))}};
    return host->seen();
}

std::string Observations::instead_text(const Expectation& expectation) const {
    const auto* value = std::get_if<ExpectedValue>(&expectation.what);
    if (value == nullptr)
        return listed(calls_, "calls received", call_text);
    const HostWatch* host = host_of(*value);
    if (host == nullptr)
        return "it is " + common::json_line(camera_.value(value->name));
    if (!host->answered())
        return fmt::format("no host answers at '{}'", host->name());
    const bool log = value->source == ExpectedValue::Source::log;
    return listed(seen(*value), log ? "log lines" : "values", seen_text);
}

Json Observations::instead(const Expectation& expectation) const {
    Json list = Json::array();
    if (const auto* value = std::get_if<ExpectedValue>(&expectation.what)) {
        for (const SeenValue& each : seen(*value))
            list.push_back({{"time", each.time}, {"value", *each.value}});
        return {{"values", std::move(list)}};
    }
    for (const CallRecord& call : calls_)
        list.push_back(call_text(call));
    return {{"calls", std::move(list)}};
}

}  // namespace camera
