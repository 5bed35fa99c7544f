#include "camera/service/service.hpp"

#include <algorithm>

#include "common/bus/out.hpp"

namespace camera {

Service::Service(std::string name, ServiceContext& surroundings)
    : name_(std::move(name)),
      context_(surroundings),
      timers_(surroundings.event),
      outgoing_(name_, surroundings.event_log) {}

void Service::bring_up(const std::string& address) {
    if (is_up())
        return;
    auto connection = std::make_unique<Connection>(context_.event, address, context_.lost);
    sd_bus* bus = &connection->bus();
    std::vector<common::SlotPtr> slots;
    common::check(sd_bus_add_filter(bus, common::out(slots.emplace_back()),
                                    common::callback<&Service::on_message>, this),
                  "sd_bus_add_filter");
    // arg2, the new owner, is empty when a name goes for good: clients that leave, nothing else.
    common::check(sd_bus_add_match(bus, common::out(slots.emplace_back()),
                                   "type='signal',sender='org.freedesktop.DBus',"
                                   "path='/org/freedesktop/DBus',interface='org.freedesktop.DBus',"
                                   "member='NameOwnerChanged',arg2=''",
                                   common::callback<&Service::on_client_left>, this),
                  "sd_bus_add_match");
    for (const ServedObject& object : objects()) {
        common::check(
            sd_bus_add_object_vtable(bus, common::out(slots.emplace_back()), object.names.path,
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
    slots_.clear();
    connection_.reset();
    forget();
    context_.event_log.service_down(name_, why);
}

std::string Service::unique_name() const {
    return is_up() ? connection_->unique_name() : std::string{};
}

std::vector<std::string> Service::bus_names() const {
    std::vector<std::string> names;
    for (const ServedObject& object : objects()) {
        if (std::ranges::find(names, object.names.name) == names.end())
            names.emplace_back(object.names.name);
    }
    return names;
}

Members Service::members() const {
    Members members;
    for (const ServedObject& object : objects()) {
        for (auto& member : members_of(object))
            members.push_back(std::move(member));
    }
    for (const std::string& call : outgoing_calls())
        members.emplace_back(call, MemberKind::outgoing_call);
    return members;
}

bool Service::claims(const std::string& value) const {
    return std::ranges::any_of(values(), [&](const Value& each) { return each.name == value; });
}

common::Json Service::value(const std::string& name) const {
    const std::vector<Value> all = values();
    const auto it = std::ranges::find(all, name, &Value::name);
    if (it == all.end())
        throw CommandError("there is no value '" + name + "'");
    return it->value;
}

void Service::do_afterwards() {
    if (const auto what = std::exchange(afterwards_, nullptr))
        what();
}

int Service::on_client_left(sd_bus_message& message) {
    const char* client = nullptr;
    common::check(sd_bus_message_read(&message, "s", &client), "sd_bus_message_read");
    afterwards_ = nullptr;
    if (const std::size_t count = client_left(client); count > 0)
        context_.event_log.registrations_dropped(name_, client, count);
    do_afterwards();
    return 0;
}

}  // namespace camera
