#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "camera/service/served_object.hpp"

namespace camera {

/// A call that reads properties of an object: "Get" one, or "GetAll".
struct PropertyCall {
    const ServedObject* object;
    std::vector<const sd_bus_vtable*> properties;
    bool all;
};

/// The object whose properties a call reads or sets; null for every other call, and for objects
/// without properties, which sd-bus serves by itself.
[[nodiscard]] const ServedObject* object_of_property_call(sd_bus_message& call,
                                                          std::span<const ServedObject> objects);

/// Parses a call about the properties of `object`.
/// @throws DBusError where the call reads no property that there is.
[[nodiscard]] PropertyCall parse_property_call(sd_bus_message& call, const ServedObject& object);

/// Appends a variant with a property's value, or with a value of another type.
using AppendValue = std::function<void(sd_bus_message& message, const sd_bus_vtable& property)>;

/// Appends the body of the reply.
void append_reply(sd_bus_message& reply, const PropertyCall& call, const AppendValue& append_value);
/// Appends the body of PropertiesChanged with one property.
void append_change(sd_bus_message& signal, const ServedObject& object,
                   const sd_bus_vtable& property, const AppendValue& append_value);

/// Appends a variant with the value of the vtable's getter. @param userdata for the getter.
void append_right_value(sd_bus_message& message, const ServedObject& object,
                        const sd_bus_vtable& property, void* userdata);
/// Appends a variant with a value of another type than the property's.
void append_wrong_value(sd_bus_message& message, const sd_bus_vtable& property);

/// Appends a value that a receiver which expects `types` cannot read.
void append_wrong(sd_bus_message& message, const char* types);

}  // namespace camera
