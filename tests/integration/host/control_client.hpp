#pragma once

#include <systemd/sd-bus.h>

#include <string>
#include <vector>

#include "common/bus/bus.hpp"

namespace test {

/// A client of the control interface. What it gets is text: "d 36.5" for a variant, "ok" for an
/// empty reply, the text itself for a string, and "NAME: SENTENCE" for an error, without the prefix
/// "com.tarlo.Fenwa.Host1.Error.".
class ControlClient {
  public:
    explicit ControlClient(const std::string& address,
                           std::string destination = "com.tarlo.Fenwa.Host1");

    [[nodiscard]] std::string read(const std::string& port) const;
    /// Writes a variant of this type.
    template <class Value>
    [[nodiscard]] std::string write(const std::string& port, const char* type, Value value) const {
        return call("Write", "sv", port.c_str(), type, value);
    }
    [[nodiscard]] std::string describe() const { return call("Describe", ""); }
    /// Any call of the interface.
    template <class... Arguments>
    [[nodiscard]] std::string call(const char* method, const char* types,
                                   Arguments... arguments) const {
        const common::MessagePtr message = new_call(method);
        common::check(sd_bus_message_append(message.get(), types, arguments...), "append");
        return send(*message);
    }
    [[nodiscard]] common::MessagePtr new_call(const char* method) const;

    /// From here on keeps the "OutputChanged" signals.
    void listen();
    /// Serves what has come until there are so many, 20 s at most: "PORT TYPE VALUE".
    const std::vector<std::string>& changes(std::size_t count);

    [[nodiscard]] sd_bus& bus() const { return *bus_; }

  private:
    static int on_change(sd_bus_message* signal, void* userdata, sd_bus_error* error);
    [[nodiscard]] std::string send(sd_bus_message& message) const;

    std::string destination_;
    common::BusPtr bus_;
    std::vector<std::string> changes_;
};

}  // namespace test
