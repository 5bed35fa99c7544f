#pragma once

#include <systemd/sd-bus.h>

#include "fenwa/block.hpp"
#include "src/frame/sdbus_handle.hpp"

namespace blocks {

/// Where a service is found on the bus.
struct BusService {
    const char* destination;  ///< well-known bus name
    const char* path;
    const char* interface;
};

/// The framework's connection, as the block's tools have it. Owned by the framework.
[[nodiscard]] inline sd_bus* bus_of(const Fenwa::Block& block) {
    return block.get_tools().sdbus_tools->get_bus();
}

/// Makes an sd-bus callback out of a member `int on_something(sd_bus_message*, sd_bus_error*)`.
/// `userdata` is the object as a T*, T being the class that declares the member.
template <auto Member>
struct Callback;

template <class T, int (T::*Member)(sd_bus_message*, sd_bus_error*)>
struct Callback<Member> {
    using Object = T;

    static int call(sd_bus_message* message, void* userdata, sd_bus_error* error) noexcept {
        return (static_cast<T*>(userdata)->*Member)(message, error);
    }
};

/// Starts an asynchronous method call whose reply goes to the member `OnReply` of `object`.
/// @param slot empty; holds the pending call on success.
/// @returns what sd-bus returned, negative on failure.
template <auto OnReply, class... Arguments>
int call_async(sd_bus* bus, Slot& slot, const BusService& service, const char* member,
               typename Callback<OnReply>::Object& object, const char* types,
               Arguments... arguments) {
    return sd_bus_call_method_async(bus, slot.out(), service.destination, service.path,
                                    service.interface, member, Callback<OnReply>::call, &object,
                                    types, arguments...);
}

/// Sends a method call that no reply is wanted to; the service is told not to answer.
/// @returns what sd-bus returned, negative on failure.
template <class... Arguments>
int call_without_reply(sd_bus* bus, const BusService& service, const char* member,
                       const char* types, Arguments... arguments) {
    return sd_bus_call_method_async(bus, nullptr, service.destination, service.path,
                                    service.interface, member, nullptr, nullptr, types,
                                    arguments...);
}

// sd-bus ends the connection when an asynchronous match without an install callback is refused, so
// there always is one.

/// Starts the installation of a match for one signal of a service.
/// @param slot empty; holds the match on success.
/// @returns what sd-bus returned, negative on failure.
template <auto OnSignal, auto OnInstalled>
int match_signal_async(sd_bus* bus, Slot& slot, const BusService& service, const char* member,
                       typename Callback<OnSignal>::Object& object) {
    return sd_bus_match_signal_async(bus, slot.out(), service.destination, service.path,
                                     service.interface, member, Callback<OnSignal>::call,
                                     Callback<OnInstalled>::call, &object);
}

/// Starts the installation of a match for a rule in the bus's own notation.
/// @param slot empty; holds the match on success.
/// @returns what sd-bus returned, negative on failure.
template <auto OnMessage, auto OnInstalled>
int match_rule_async(sd_bus* bus, Slot& slot, const char* rule,
                     typename Callback<OnMessage>::Object& object) {
    return sd_bus_add_match_async(bus, slot.out(), rule, Callback<OnMessage>::call,
                                  Callback<OnInstalled>::call, &object);
}

}  // namespace blocks
