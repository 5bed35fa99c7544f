#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "fenwa/api.hpp"

namespace Fenwa {

/// A member function as a callback of sd-bus: `Callback<&T::on_reply>::call`, with the object as a
/// `T*` for userdata, T being the class that declares the member.
template <auto Member>
struct Callback;

template <class T, class Result, bool NoExcept, class... Taken,
          Result (T::*Member)(Taken...) noexcept(NoExcept)>
struct Callback<Member> {
    /// The class that the userdata points to.
    using Object = T;

    /// Calls a member that takes nothing, `sd_bus_message*`, or that and `sd_bus_error*`. The
    /// message is borrowed. A member that throws ends the process, because sd-bus is written in C.
    /// @returns the member's result, 0 where it returns nothing. A handler that returns something
    ///          else ends the delivery of a signal to the connection's other matches.
    static int call(sd_bus_message* message, void* userdata, sd_bus_error* error) noexcept {
        return invoke(userdata, message, error);
    }

    /// Calls the member of the object at `userdata` with as many of `given` as it takes, beginning
    /// with the first. Throws what the member throws.
    /// @returns the member's result, 0 where it returns nothing.
    template <class... Given>
    static int invoke(void* userdata, Given&... given) {
        return apply(*static_cast<T*>(userdata), std::tie(given...),
                     std::index_sequence_for<Taken...>());
    }

  private:
    template <class Tuple, std::size_t... Index>
    static int apply(T& object, [[maybe_unused]] Tuple given, std::index_sequence<Index...>) {
        if constexpr (std::is_void_v<Result>) {
            (object.*Member)(std::get<Index>(given)...);
            return 0;
        } else {
            return (object.*Member)(std::get<Index>(given)...);
        }
    }
};

}  // namespace Fenwa
