#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <string>

#include "common/bus/bus.hpp"

namespace test {

/// Another connection on the bus of a test.
class BusClient {
  public:
    explicit BusClient(const std::string& address)
        : bus_(common::open_bus(address, std::chrono::seconds(10))) {}

    [[nodiscard]] sd_bus& bus() const { return *bus_; }

    /// Owns a name. Calls to it are not answered unless something else serves them.
    void own(const std::string& name) { common::own_name(*bus_, name); }

    /// Serves the connection until `done` gives true, 20 s at most.
    template <class Done>
    void serve_until(Done done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!done() && std::chrono::steady_clock::now() < deadline) {
            if (common::check(sd_bus_process(bus_.get(), nullptr), "process") == 0)
                common::check(sd_bus_wait(bus_.get(), 20'000), "wait");
        }
    }

  private:
    common::BusPtr bus_;
};

}  // namespace test
