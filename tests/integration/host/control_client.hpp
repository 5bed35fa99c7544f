#pragma once

#include <string>
#include <vector>

#include "tests/integration/host/bus_client.hpp"

namespace test {

/// A client of the control interface. Each call returns text: "d 36.5" for a variant, "ok" for an
/// empty reply, the text itself for a string, and "NAME: SENTENCE" for an error, without the prefix
/// "com.tarlo.Fenwa.Host1.Error.".
class ControlClient : public BusClient {
  public:
    explicit ControlClient(const std::string& address,
                           std::string destination = "com.tarlo.Fenwa.Host1")
        : BusClient(address), destination_(std::move(destination)) {}

    [[nodiscard]] std::string read(const std::string& port) const {
        return call("Read", "s", port.c_str());
    }
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

    /// From here on keeps the "OutputChanged" signals that others have subscribed to.
    void overhear();
    /// Subscribes to them and keeps them.
    void listen();
    /// Serves the connection until so many have come, 20 s at most: "PORT TYPE VALUE".
    const std::vector<std::string>& changes(std::size_t count);

  private:
    void on_change(sd_bus_message& signal);
    [[nodiscard]] std::string send(sd_bus_message& message) const;

    std::string destination_;
    std::vector<std::string> changes_;
};

}  // namespace test
