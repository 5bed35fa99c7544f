#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <string>

#include "fenwa/api.hpp"

namespace Fenwa::testkit {

/// The values of a message, to be appended to a reply or a signal: `Body("sd", "main", 36.5)`. The
/// values are copied.
class Body {
  public:
    /// No values.
    Body() = default;

    /// @param types signature of the values that follow, as for `sd_bus_message_append`.
    template <class... Values>
    Body(const char* types, Values... values)  // NOLINT: implicit, so that braces do
        : append_([types = std::string(types), ... kept = keep(values)](sd_bus_message* message) {
              return sd_bus_message_append(message, types.c_str(), pass(kept)...);
          }) {}

    /// Appends the values. @returns what sd-bus returned, negative on failure.
    [[nodiscard]] int append_to(sd_bus_message* message) const {
        return append_ ? append_(message) : 0;
    }

  private:
    static std::string keep(const char* text) { return text; }
    template <class Value>
    static Value keep(Value value) {
        return value;
    }
    static const char* pass(const std::string& text) { return text.c_str(); }
    template <class Value>
    static Value pass(Value value) {
        return value;
    }

    std::function<int(sd_bus_message*)> append_;
};

}  // namespace Fenwa::testkit
