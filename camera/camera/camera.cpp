#include "camera/camera/camera.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "common/process/exit_code.hpp"
#include "common/text/suggestion.hpp"

namespace camera {

using common::Json;

Camera::Camera(sd_event& event, EventLog& event_log, const Configuration& configuration,
               std::function<void()> lost)
    : event_log_(event_log),
      faults_([this](const char* state, const FaultRule& rule) {
          event_log_.fault(state, rule.target(), rule.what());
      }),
      context_{event,
               event_log,
               faults_,
               script_,
               [this](const CallRecord& call) {
                   if (observers_.called)
                       observers_.called(call);
               },
               [this] {
                   if (observers_.changed)
                       observers_.changed();
               },
               [this](const std::string& service) { drop(service); },
               std::move(lost)},
      temperature_(configuration.sensors),
      power_(configuration.power.budget),
      parameters_(configuration.video.channels) {
    const int channels = configuration.video.channels;
    auto controls = make_controls_service(parameters_, channels, context_);
    controls_ = controls.get();
    services_.push_back(make_temperature_service(temperature_, context_));
    services_.push_back(make_power_consumer_service(power_, context_));
    services_.push_back(make_power_status_service(configuration.power.received, context_));
    services_.push_back(std::move(controls));
    services_.push_back(make_overlay_service(context_));
    services_.push_back(make_video_service(channels, context_));
    services_.push_back(make_init_service(configuration.video.unit, context_));
    for (const auto& service : services_) {
        if (service->belongs_to_machine())
            not_activatable_.insert(service->name());
    }
}

void Camera::go_up(const std::string& address, const Presence& presence,
                   std::set<std::string> startable) {
    address_ = address;
    startable_ = std::move(startable);
    for (const auto& service : services_) {
        if (!presence.activatable.contains(service->name()))
            not_activatable_.insert(service->name());
        if (!presence.down.contains(service->name()))
            start_first_time(*service);
    }
}

void Camera::start_first_time(Service& service) {
    try {
        service.bring_up(address_);
    } catch (const common::Failure& failure) {
        if (!service.belongs_to_machine())
            throw;
        event_log_.service_down(service.name(), std::string("not started: ") + failure.what());
    }
}

void Camera::go_down() {
    for (auto service = services_.rbegin(); service != services_.rend(); ++service)
        (*service)->take_down("");
}

Service& Camera::service_named(const std::string& name) const {
    std::vector<std::string> known;
    for (const auto& service : services_) {
        if (service->name() == name)
            return *service;
        known.push_back(service->name());
    }
    throw CommandError(fmt::format("unknown service '{}'", name),
                       common::did_you_mean(name, known));
}

Value Camera::value_named(const std::string& name) const {
    std::vector<std::string> known;
    for (const auto& service : services_) {
        if (std::optional<Value> value = service->find_value(name))
            return std::move(*value);
        for (const Value& each : service->values())
            known.push_back(each.name);
    }
    throw CommandError(fmt::format("unknown value '{}'", name), common::did_you_mean(name, known));
}

Value Camera::settable_value(const std::string& name) const {
    Value value = value_named(name);
    if (!value.set)
        throw CommandError(fmt::format("'{}' cannot be set: {}", name, value.why_read_only));
    return value;
}

Service& Camera::service_with(const std::string& service, const std::string& member) const {
    if (!service.empty())
        (void)service_named(service);
    std::vector<std::string> known;
    for (const auto& each : services_) {
        if (!service.empty() && each->name() != service)
            continue;
        for (const auto& [name, kind] : each->members()) {
            if (name == member)
                return *each;
            known.push_back(name);
        }
    }
    const std::string of = service.empty() ? "" : fmt::format(" of the service '{}'", service);
    throw CommandError(fmt::format("unknown method, signal or property '{}'{}", member, of),
                       common::did_you_mean(member, known));
}

MemberKind Camera::kind_of(const std::string& service, const std::string& member) const {
    const Members members = service_with(service, member).members();
    return std::ranges::find(members, member, &Members::value_type::first)->second;
}

void Camera::set(const std::string& name, const std::string& text) {
    const Value value = settable_value(name);
    (void)value.parse(text);
    value.set(text);
    context_.changed();
}

void Camera::start(const std::string& service) {
    service_named(service).bring_up(address_);
}

void Camera::stop(const std::string& service) {
    service_named(service).take_down("stopped");
}

void Camera::restart(const std::string& service) {
    Service& named = service_named(service);
    named.take_down("restarting");
    named.bring_up(address_);
}

void Camera::activate(const std::string& service) {
    Service& named = service_named(service);
    if (not_activatable_.contains(service))
        throw CommandError(fmt::format("the service '{}' cannot be activated", service));
    named.bring_up(address_);
}

void Camera::drop(const std::string& service) {
    service_named(service).take_down("dropped by a fault");
}

void Camera::fail(const FaultRule& rule) {
    check_fault(rule);
    faults_.add(rule);
    event_log_.fault("set", rule.target(), rule.description());
}

void Camera::clear_fault(const std::string& target) {
    check_fault_target(target);
    FaultRule rule;
    set_target(rule, target);
    // No error where there is no rule: it may be spent.
    if (faults_.clear(rule.service, rule.member))
        event_log_.fault("cleared", target, "the rule is removed");
}

void Camera::press(const std::string& button) {
    controls_->press(button);
    context_.changed();
}

void Camera::send(const ScriptedMessage& message) {
    service_with(message.service, message.member).send(message);
}

Json Camera::check_value(const std::string& name, const std::string& text) const {
    return settable_value(name).parse(text);
}

Json Camera::check_state(const std::string& name, const std::string& text) const {
    return value_named(name).parse(text);
}

void Camera::check_fault(const FaultRule& rule) const {
    const MemberKind kind = kind_of(rule.service, rule.member);
    if (rule.effect != FaultEffect::error)
        return;
    if (kind == MemberKind::signal)
        throw CommandError(
            fmt::format("'{}' is a signal; 'error' needs a method or a property", rule.member));
    if (kind == MemberKind::outgoing_call)
        throw CommandError(fmt::format(
            "'{}' is an outgoing call of the camera; 'error' needs a method or a property",
            rule.member));
}

void Camera::check_fault_target(const std::string& target) const {
    FaultRule rule;
    set_target(rule, target);
    (void)kind_of(rule.service, rule.member);
}

void Camera::check_method(const std::string& service, const std::string& member) const {
    switch (kind_of(service, member)) {
        case MemberKind::method:
            return;
        case MemberKind::signal:
            throw CommandError(fmt::format("'{}' is a signal, not a method", member));
        case MemberKind::property:
            throw CommandError(fmt::format("'{}' is a property, not a method", member),
                               "a property is read with 'Get'");
        case MemberKind::outgoing_call:
            throw CommandError(
                fmt::format("'{}' is an outgoing call of the camera, not a method", member),
                "expect the 'state' that it reports");
    }
}

void Camera::check_message(const ScriptedMessage& message) const {
    const MemberKind wanted = message.to.empty() ? MemberKind::signal : MemberKind::outgoing_call;
    if (kind_of(message.service, message.member) != wanted)
        throw CommandError(fmt::format("'{}' is not {} of the camera", message.member,
                                       message.to.empty() ? "a signal" : "an outgoing call"));
}

Json Camera::value(const std::string& name) const {
    return *value_named(name).value;
}

bool Camera::is_activatable(const Service& service) const {
    return !not_activatable_.contains(service.name()) &&
           std::ranges::all_of(service.bus_names(), [this](const std::string& bus_name) {
               return startable_.contains(bus_name);
           });
}

Json Camera::show() const {
    Json state = {{"bus", address_}, {"services", Json::array()}, {"values", Json::object()}};
    for (const auto& service : services_) {
        state["services"].push_back({{"name", service->name()},
                                     {"state", service->is_up() ? "up" : "down"},
                                     {"unique_name", service->unique_name()},
                                     {"bus_names", service->bus_names()},
                                     {"activatable", is_activatable(*service)},
                                     {"registrations", service->registrations()}});
        for (const Value& value : service->values())
            state["values"][value.name] = *value.value;
    }
    state["faults"] = faults_.json();
    return state;
}

}  // namespace camera
