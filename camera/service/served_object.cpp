#include "camera/service/served_object.hpp"

#include <algorithm>
#include <optional>

#include "camera/bus/message_json.hpp"

namespace camera {
namespace {

/// The member of a vtable's entry; nothing for other entries.
std::optional<std::pair<std::string, MemberKind>> member(const sd_bus_vtable& entry) {
    switch (entry.type) {
        case _SD_BUS_VTABLE_METHOD:
            return {{entry.x.method.member, MemberKind::method}};
        case _SD_BUS_VTABLE_SIGNAL:
            return {{entry.x.signal.member, MemberKind::signal}};
        case _SD_BUS_VTABLE_PROPERTY:
        case _SD_BUS_VTABLE_WRITABLE_PROPERTY:
            return {{entry.x.property.member, MemberKind::property}};
        default:
            return std::nullopt;
    }
}

const sd_bus_vtable* find(const ServedObject& object, std::string_view name, MemberKind kind) {
    for (const sd_bus_vtable* entry = object.vtable; entry->type != _SD_BUS_VTABLE_END; ++entry) {
        const auto found = member(*entry);
        if (found && found->first == name && found->second == kind)
            return entry;
    }
    return nullptr;
}

}  // namespace

Members members_of(const ServedObject& object) {
    Members members;
    for (const sd_bus_vtable* entry = object.vtable; entry->type != _SD_BUS_VTABLE_END; ++entry) {
        if (auto found = member(*entry))
            members.push_back(std::move(*found));
    }
    const bool has_properties = std::ranges::any_of(
        members, [](const auto& each) { return each.second == MemberKind::property; });
    if (has_properties) {
        members.emplace_back("Get", MemberKind::method);
        members.emplace_back("GetAll", MemberKind::method);
        members.emplace_back("PropertiesChanged", MemberKind::signal);
    }
    return members;
}

std::vector<std::string> names_of(const ServedObject& object, MemberKind kind) {
    std::vector<std::string> names;
    for (const auto& [name, its_kind] : members_of(object)) {
        if (its_kind == kind)
            names.push_back(name);
    }
    return names;
}

std::string result_types(std::span<const ServedObject> objects, std::string_view method) {
    for (const ServedObject& object : objects) {
        if (const sd_bus_vtable* entry = find_method(object, method))
            return text_or_empty(entry->x.method.result);
    }
    if (method == "Get")
        return "v";
    return method == "GetAll" ? "a{sv}" : "";
}

const ServedObject* object_with_signal(std::span<const ServedObject> objects,
                                       std::string_view signal) {
    const auto it = std::ranges::find_if(objects, [&](const ServedObject& object) {
        const std::vector<std::string> names = names_of(object, MemberKind::signal);
        return std::ranges::find(names, signal) != names.end();
    });
    return it == objects.end() ? nullptr : &*it;
}

std::string signal_interface(const ServedObject& object, std::string_view signal) {
    return find_signal(object, signal) == nullptr ? properties_interface : object.names.interface;
}

std::string signal_types(const ServedObject& object, std::string_view signal) {
    const sd_bus_vtable* entry = find_signal(object, signal);
    return entry == nullptr ? "sa{sv}as" : text_or_empty(entry->x.signal.signature);
}

const sd_bus_vtable* find_method(const ServedObject& object, std::string_view name) {
    return find(object, name, MemberKind::method);
}

const sd_bus_vtable* find_signal(const ServedObject& object, std::string_view name) {
    return find(object, name, MemberKind::signal);
}

const sd_bus_vtable* find_property(const ServedObject& object, std::string_view name) {
    return find(object, name, MemberKind::property);
}

}  // namespace camera
