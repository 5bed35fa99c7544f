#include "camera/scenario/host_watch.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>

#include "camera/bus/message_json.hpp"
#include "common/bus/callback.hpp"
#include "common/bus/host_control.hpp"

namespace camera {
namespace {

using common::check;
using common::Json;
using Source = ExpectedValue::Source;

constexpr std::size_t max_seen = 10000;
constexpr std::chrono::milliseconds poll_interval{20};
/// The age of a line is as old as the answer that has it: this much may differ between two readings
/// of one line.
constexpr double age_slack = 0.1;

/// The part of the status that "BLOCK.KEY.KEY" names; nothing where there is no such block.
std::optional<Json> status_at(const Json& blocks, const std::string& name) {
    for (const Json& block : blocks) {
        const auto prefix = block.at("name").get<std::string>() + '.';
        if (!name.starts_with(prefix))
            continue;
        Json part = block.value("status", Json());
        std::string_view keys = std::string_view(name).substr(prefix.size());
        while (!keys.empty()) {
            const std::string_view key = keys.substr(0, keys.find('.'));
            part = part.is_object() ? part.value(std::string(key), Json()) : Json();
            keys.remove_prefix(std::min(keys.size(), key.size() + 1));
        }
        return part;
    }
    return std::nullopt;
}

}  // namespace

HostWatch::HostWatch(sd_event& event, const std::string& address, std::string name,
                     std::set<std::string> ports, const EventLog& event_log,
                     std::function<void()> changed, std::function<void()> lost)
    : name_(std::move(name)),
      ports_(std::move(ports)),
      event_log_(event_log),
      changed_(std::move(changed)),
      connection_(event, address, std::move(lost)),
      timers_(event) {
    // A bus name holds nothing that a match rule would have to quote.
    const std::string rule = fmt::format(
        "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='{}'", name_);
    check(sd_bus_add_match(&connection_.bus(), matches_.emplace_back().out(), rule.c_str(),
                           common::callback<&HostWatch::on_owner_changed>, this),
          "sd_bus_add_match");
    check(
        sd_bus_match_signal(&connection_.bus(), matches_.emplace_back().out(), name_.c_str(),
                            common::host_control_path, common::host_control_interface,
                            "OutputChanged", common::callback<&HostWatch::on_output_changed>, this),
        "sd_bus_match_signal");
    subscribe();
}

void HostWatch::follow(const ExpectedValue& value, double since) {
    leave();
    followed_ = &value;
    since_ = since;
    latest_.reset();
    refusal_.clear();
    answered_ = false;
    ask();
}

void HostWatch::leave() {
    followed_ = nullptr;
    call_.reset();
    timers_.clear();
}

void HostWatch::ask() {
    if (sd_bus_is_open(&connection_.bus()) <= 0)
        return;
    if (followed_->source == Source::output)
        call("Read", followed_->name.c_str(), common::callback<&HostWatch::on_value>);
    else
        call("Describe", nullptr, common::callback<&HostWatch::on_description>);
}

void HostWatch::subscribe() {
    const common::MessagePtr message = new_call("Subscribe");
    check(sd_bus_message_set_expect_reply(message.get(), 0), "sd_bus_message_set_expect_reply");
    check(sd_bus_send(&connection_.bus(), message.get(), nullptr), "sd_bus_send");
}

common::MessagePtr HostWatch::new_call(const char* method) const {
    common::MessagePtr message;
    check(sd_bus_message_new_method_call(&connection_.bus(), message.out(), name_.c_str(),
                                         common::host_control_path, common::host_control_interface,
                                         method),
          "sd_bus_message_new_method_call");
    // No daemon should look for a program to start.
    check(sd_bus_message_set_auto_start(message.get(), 0), "sd_bus_message_set_auto_start");
    return message;
}

void HostWatch::call(const char* method, const char* argument, sd_bus_message_handler_t handler) {
    const common::MessagePtr message = new_call(method);
    if (argument != nullptr)
        check(sd_bus_message_append(message.get(), "s", argument), "sd_bus_message_append");
    call_.reset();
    check(sd_bus_call_async(&connection_.bus(), call_.out(), message.get(), handler, this, 0),
          "sd_bus_call_async");
}

void HostWatch::on_output_changed(sd_bus_message& signal) {
    if (sd_bus_message_has_signature(&signal, "sv") <= 0)
        return;
    const Json arguments = body_json(signal);
    const auto port = arguments[0].get<std::string>();
    if (ports_.contains(port))
        see(port, arguments[1], event_log_.seconds());
}

void HostWatch::on_owner_changed(sd_bus_message& signal) {
    const bool has_come = !body_json(signal).at(2).get<std::string>().empty();
    if (has_come)
        subscribe();
    if (has_come && followed_ != nullptr && followed_->source == Source::output)
        ask();
}

bool HostWatch::is_answer(sd_bus_message& reply) {
    const sd_bus_error* error = sd_bus_message_get_error(&reply);
    if (error == nullptr)
        return answered_ = true;
    if (std::string_view(error->name).starts_with(common::host_error_prefix))
        refuse(fmt::format("the host refuses: {}", text_or_empty(error->message)));
    return false;
}

void HostWatch::on_value(sd_bus_message& reply) {
    if (!is_answer(reply))
        return;
    const Json value = body_json(reply).at(0);
    const std::vector<SeenValue> before = seen();
    // The signal of this value may have come before.
    const bool is_new = before.empty() || *before.back().value != value;
    see(followed_->name, value, is_new ? event_log_.seconds() : before.back().time);
}

void HostWatch::on_description(sd_bus_message& reply) {
    timers_.once(poll_interval, [this] { ask(); });
    if (!is_answer(reply))
        return;
    try {
        see_status(common::parse_json(body_json(reply).at(0).get<std::string>(), "the description")
                       .at("blocks"));
    } catch (const common::JsonError& error) {
        refuse(fmt::format("the host's description makes no sense: {}", error.what()));
    } catch (const Json::exception&) {
        refuse("the host's description has an unknown form");
    }
}

void HostWatch::see_status(const Json& blocks) {
    const bool log = followed_->source == Source::log;
    const std::optional<Json> part =
        status_at(blocks, log ? followed_->name + ".last_log" : followed_->name);
    if (!part)
        refuse(fmt::format("the host has no block of '{}'", followed_->name));
    else if (log)
        see_log(*part);
    else if (latest_ == nullptr || *latest_ != *part)
        see(followed_->name, *part, event_log_.seconds());
}

void HostWatch::see_log(const Json& log) {
    if (!log.is_object())
        return;
    const double time = event_log_.seconds() - log.at("age").get<double>();
    const Json& message = log.at("message");
    SeenValue& line = lines_[followed_->name];
    const bool is_new =
        line.value == nullptr || *line.value != message || time > line.time + age_slack;
    if (is_new)
        line = {time, common::share(message)};
    if (line.time >= since_ && (is_new || latest_ == nullptr))
        see(followed_->name, message, line.time);
}

void HostWatch::see(const std::string& subject, const Json& value, double time) {
    const Seen seen{subject, {time, common::share(value)}};
    const bool known = std::ranges::any_of(seen_, [&](const Seen& each) {
        return each.subject == subject && each.value.time == time;
    });
    if (!known)
        seen_.push_back(seen);
    if (seen_.size() > max_seen)
        seen_.pop_front();
    if (followed_ == nullptr || followed_->name != subject)
        return;
    latest_ = seen.value.value;
    answered_ = true;
    changed_();
}

void HostWatch::refuse(const std::string& sentence) {
    refusal_ = sentence;
    changed_();
}

std::vector<SeenValue> HostWatch::seen() const {
    std::vector<SeenValue> values;
    for (const Seen& each : seen_) {
        if (followed_ != nullptr && each.subject == followed_->name)
            values.push_back(each.value);
    }
    return values;
}

}  // namespace camera
