#include "camera/service.hpp"

#include <algorithm>

namespace camera {

Service::Service(std::string name, Surroundings& surroundings)
    : name_(std::move(name)), around_(surroundings), timers_(surroundings.event) {}

void Service::bring_up(const std::string& address) {
    if (is_up())
        return;
    auto connection = std::make_unique<Connection>(around_.event, address, around_.lost);
    sd_bus* bus = &connection->bus();
    std::vector<tool::SlotPtr> slots;
    sd_bus_slot* slot = nullptr;
    tool::check(sd_bus_add_filter(bus, &slot, Trampoline<&Service::on_message>::message, this),
                "sd_bus_add_filter");
    slots.emplace_back(slot);
    // arg2, the new owner, is empty when a name goes for good: clients that leave, nothing else.
    tool::check(sd_bus_add_match(bus, &slot,
                                 "type='signal',sender='org.freedesktop.DBus',"
                                 "path='/org/freedesktop/DBus',interface='org.freedesktop.DBus',"
                                 "member='NameOwnerChanged',arg2=''",
                                 Trampoline<&Service::on_client_left>::message, this),
                "sd_bus_add_match");
    slots.emplace_back(slot);
    for (const Object& object : objects()) {
        tool::check(sd_bus_add_object_vtable(bus, &slot, object.names.path, object.names.interface,
                                             object.vtable, this),
                    "sd_bus_add_object_vtable");
        slots.emplace_back(slot);
    }
    for (const std::string& bus_name : bus_names())
        tool::own_name(*bus, bus_name);

    connection_ = std::move(connection);
    slots_ = std::move(slots);
    around_.story.service_up(name_, bus_names(), connection_->unique_name());
}

void Service::take_down(const std::string& why) {
    if (!is_up())
        return;
    timers_.clear();
    slots_.clear();
    connection_.reset();
    forget();
    around_.story.service_down(name_, why);
}

std::string Service::unique_name() const {
    return is_up() ? connection_->unique_name() : std::string{};
}

std::vector<std::string> Service::bus_names() const {
    std::vector<std::string> names;
    for (const Object& object : objects()) {
        if (std::ranges::find(names, object.names.name) == names.end())
            names.emplace_back(object.names.name);
    }
    return names;
}

std::vector<std::pair<std::string, Service::MemberKind>> Service::members() const {
    std::vector<std::pair<std::string, MemberKind>> members;
    for (const Object& object : objects()) {
        for (const sd_bus_vtable* v = object.vtable; v->type != _SD_BUS_VTABLE_END; ++v) {
            if (v->type == _SD_BUS_VTABLE_METHOD)
                members.emplace_back(v->x.method.member, MemberKind::method);
            else if (v->type == _SD_BUS_VTABLE_SIGNAL)
                members.emplace_back(v->x.signal.member, MemberKind::signal);
        }
    }
    return members;
}

int Service::on_client_left(sd_bus_message& message) {
    const char* client = nullptr;
    tool::check(sd_bus_message_read(&message, "s", &client), "sd_bus_message_read");
    if (const std::size_t count = client_left(client); count > 0)
        around_.story.registrations_dropped(name_, client, count);
    return 0;
}

}  // namespace camera
