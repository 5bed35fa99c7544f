#pragma once

#include <systemd/sd-bus.h>

#include "fenwa/block.hpp"
#include "fenwa/callback.hpp"
#include "fenwa/slot.hpp"

namespace Fenwa {

/// Address of a service on the bus.
struct BusService {
    const char* destination;  ///< well-known bus name
    const char* path;
    const char* interface;
};

/// The framework's connection, owned by the framework. Null in a probe (`fenwa check`).
/// @throws std::logic_error in a constructor: there are no tools yet.
[[nodiscard]] inline sd_bus* bus_of(const Block& block) {
    return block.get_tools().sdbus_tools->get_bus();
}

// The functions below run on the thread of `run()`. They return what sd-bus returned, negative on
// failure. A slot that they take releases what it holds, and holds the new call or match on
// success; the callback then comes until the slot is reset or destroyed.

/// Starts an asynchronous method call whose reply goes to the member `OnReply` of `object`.
/// @param types signature of the arguments that follow, as for `sd_bus_message_append`; null or
///        empty for none.
template <auto OnReply, class... Arguments>
int call_async(sd_bus* bus, Slot& slot, const BusService& service, const char* member,
               typename Callback<OnReply>::Object& object, const char* types,
               Arguments... arguments) {
    return sd_bus_call_method_async(bus, slot.out(), service.destination, service.path,
                                    service.interface, member, Callback<OnReply>::call, &object,
                                    types, arguments...);
}

/// Sends a method call and asks the service not to reply.
/// @param types as for `call_async`.
template <class... Arguments>
int call_without_reply(sd_bus* bus, const BusService& service, const char* member,
                       const char* types, Arguments... arguments) {
    return sd_bus_call_method_async(bus, nullptr, service.destination, service.path,
                                    service.interface, member, nullptr, nullptr, types,
                                    arguments...);
}

// Both matches demand an install callback: without one sd-bus ends the connection when the daemon
// refuses an asynchronous match.

/// Starts the installation of a match for one signal of a service. The signal goes to `OnSignal`,
/// the daemon's answer to the installation to `OnInstalled`.
template <auto OnSignal, auto OnInstalled>
int match_signal_async(sd_bus* bus, Slot& slot, const BusService& service, const char* member,
                       typename Callback<OnSignal>::Object& object) {
    return sd_bus_match_signal_async(bus, slot.out(), service.destination, service.path,
                                     service.interface, member, Callback<OnSignal>::call,
                                     Callback<OnInstalled>::call, &object);
}

/// Starts the installation of a match for a rule in the bus's own notation. Each message that
/// matches goes to `OnMessage`, the daemon's answer to the installation to `OnInstalled`.
template <auto OnMessage, auto OnInstalled>
int match_rule_async(sd_bus* bus, Slot& slot, const char* rule,
                     typename Callback<OnMessage>::Object& object) {
    return sd_bus_add_match_async(bus, slot.out(), rule, Callback<OnMessage>::call,
                                  Callback<OnInstalled>::call, &object);
}

}  // namespace Fenwa
