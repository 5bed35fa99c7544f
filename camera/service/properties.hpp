#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "camera/service/served_object.hpp"

namespace camera {

/// The standard interface with which properties are read and followed.
inline constexpr const char* properties_interface = "org.freedesktop.DBus.Properties";

/// A call that reads properties of an object: "Get" one, or "GetAll".
struct PropertyCall {
    const ServedObject* object;
    std::vector<const sd_bus_vtable*> properties;
    bool all;
};

/// The object of ours whose properties a call is about; null for every other call, and for what
/// sd-bus serves by itself.
[[nodiscard]] const ServedObject* object_of_property_call(sd_bus_message& call,
                                                          std::span<const ServedObject> objects);

/// What a call about the properties of `object` wants to read.
/// @throws DBusError where there is nothing to be read.
[[nodiscard]] PropertyCall read_property_call(sd_bus_message& call, const ServedObject& object);

/// Appends the variant with a property's value, or one of another type.
using AppendValue = std::function<void(sd_bus_message& message, const sd_bus_vtable& property)>;

/// Appends the body of the reply.
void append_reply(sd_bus_message& reply, const PropertyCall& call, const AppendValue& append_value);
/// Appends the body of PropertiesChanged with one property.
void append_change(sd_bus_message& signal, const ServedObject& object,
                   const sd_bus_vtable& property, const AppendValue& append_value);

/// Appends a variant with what the getter of the vtable says; `userdata` is for the getter.
void append_right_value(sd_bus_message& message, const ServedObject& object,
                        const sd_bus_vtable& property, void* userdata);
/// Appends a variant that holds another type than the property's.
void append_wrong_value(sd_bus_message& message, const sd_bus_vtable& property);

/// Appends a value that whoever expects `types` cannot read.
void append_wrong(sd_bus_message& message, const char* types);

}  // namespace camera
