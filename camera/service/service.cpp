#include "camera/service/service.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

namespace camera {

Service::Service(std::string name, ServiceContext& context)
    : name_(std::move(name)),
      context_(context),
      timers_(context.event),
      outgoing_(name_, context.event_log) {}

void Service::bring_up(const std::string& address) {
    if (is_up())
        return;
    auto connection = std::make_unique<Connection>(context_.event, address, context_.lost);
    sd_bus* bus = &connection->bus();
    std::vector<common::SlotPtr> slots;
    common::check(sd_bus_add_filter(bus, slots.emplace_back().out(),
                                    common::callback<&Service::on_message>, this),
                  "sd_bus_add_filter");
    for (const ServedObject& object : objects_) {
        common::check(sd_bus_add_object_vtable(bus, slots.emplace_back().out(), object.names.path,
                                               object.names.interface, object.vtable, this),
                      "sd_bus_add_object_vtable");
    }
    for (const std::string& bus_name : bus_names())
        common::own_name(*bus, bus_name);

    connection_ = std::move(connection);
    slots_ = std::move(slots);
    context_.event_log.service_up(name_, bus_names(), connection_->unique_name());
}

void Service::take_down(const std::string& why) {
    if (!is_up())
        return;
    timers_.clear();
    outgoing_.clear();
    context_.script.forget(name_);
    clients_.clear();
    slots_.clear();
    connection_->close();
    connection_.reset();
    forget();
    context_.event_log.service_down(name_, why);
}

std::string Service::unique_name() const {
    return is_up() ? connection_->unique_name() : std::string{};
}

std::vector<std::string> Service::bus_names() const {
    std::vector<std::string> names;
    for (const ServedObject& object : objects_) {
        if (std::ranges::find(names, object.names.name) == names.end())
            names.emplace_back(object.names.name);
    }
    return names;
}

Members Service::members() const {
    Members members;
    for (const ServedObject& object : objects_) {
        for (auto& member : members_of(object))
            members.push_back(std::move(member));
    }
    for (const std::string& member : outgoing_members_)
        members.emplace_back(member, MemberKind::outgoing_call);
    return members;
}

common::Json Service::registrations() const {
    return common::Json::array();
}

std::optional<Value> Service::find_value(const std::string& name) {
    std::vector<Value> all = values();
    const auto it = std::ranges::find(all, name, &Value::name);
    return it == all.end() ? std::nullopt : std::optional(std::move(*it));
}

DBusError Service::error(const char* name, const std::string& sentence) const {
    return {fmt::format("{}.Error.{}", objects_.front().names.interface, name), sentence};
}

void Service::follow_sender(sd_bus_message& call) {
    const std::string name = sd_bus_message_get_sender(&call);
    const auto [it, is_new] = clients_.try_emplace(name, Client{this, name});
    if (!is_new)
        return;
    Client& client = it->second;
    common::check(sd_bus_track_new(&connection_->bus(), client.track.out(),
                                   common::callback<&Client::on_left>, &client),
                  "sd_bus_track_new");
    const int r = sd_bus_track_add_sender(client.track.get(), &call);
    if (r == -ENXIO)
        return;  // the sender has left already, and a tracker of no name calls back at once
    if (r < 0)
        clients_.erase(it);
    common::check(r, "sd_bus_track_add_sender");
}

void Service::client_left(const Client& client) {
    // A lost connection reports that all clients have left.
    if (sd_bus_is_open(&connection_->bus()) <= 0)
        return;
    const std::string name = client.unique_name;
    clients_.erase(name);
    current_ = {};
    if (const std::size_t count = drop_client(name); count > 0)
        context_.event_log.registrations_dropped(name_, name, count);
    run_afterwards();
}

void Service::run_afterwards() {
    if (const auto action = std::exchange(current_.afterwards, nullptr))
        action();
}

}  // namespace camera
