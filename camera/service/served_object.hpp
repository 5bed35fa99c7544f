#pragma once

#include <systemd/sd-bus.h>

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "camera/bus/names.hpp"

namespace camera {

/// The standard interface with which properties are read and followed.
inline constexpr const char* properties_interface = "org.freedesktop.DBus.Properties";

/// One interface at one path, with the vtable that describes and serves it.
struct ServedObject {
    BusObject names;
    const sd_bus_vtable* vtable;
};

/// The kind of a member of a service. The service itself makes an outgoing call.
enum class MemberKind { method, signal, property, outgoing_call };

using Members = std::vector<std::pair<std::string, MemberKind>>;

/// Methods, signals and properties of an object. With properties there are the members of
/// "org.freedesktop.DBus.Properties" that a client uses to read and follow them.
[[nodiscard]] Members members_of(const ServedObject& object);
/// The names of the members of one kind.
[[nodiscard]] std::vector<std::string> names_of(const ServedObject& object, MemberKind kind);

/// The D-Bus signature of a method's values, those of "Get" and "GetAll" included; empty for an
/// unknown method.
[[nodiscard]] std::string result_types(std::span<const ServedObject> objects,
                                       std::string_view method);
/// The first object with such a signal; null where there is none.
[[nodiscard]] const ServedObject* object_with_signal(std::span<const ServedObject> objects,
                                                     std::string_view signal);
/// The interface, and the D-Bus signature of the arguments, of a signal that the object has.
[[nodiscard]] std::string signal_interface(const ServedObject& object, std::string_view signal);
[[nodiscard]] std::string signal_types(const ServedObject& object, std::string_view signal);

/// Null where the object has no such member; valid as long as the vtable.
[[nodiscard]] const sd_bus_vtable* find_method(const ServedObject& object, std::string_view name);
[[nodiscard]] const sd_bus_vtable* find_signal(const ServedObject& object, std::string_view name);
[[nodiscard]] const sd_bus_vtable* find_property(const ServedObject& object, std::string_view name);

}  // namespace camera
