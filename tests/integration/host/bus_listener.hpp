#pragma once

#include <string>
#include <vector>

#include "tests/integration/host/bus_client.hpp"

namespace test {

/// A connection that calls blocks, and listens to what they send when they are stopped.
class BusListener : public BusClient {
  public:
    using BusClient::BusClient;

    /// Calls "com.example.Echo1.Echo". @returns the answer, or the name of the error.
    std::string echo(const std::string& destination, const std::string& path,
                     const std::string& text);

    /// Sends that call without waiting for its answer; `answer` waits for it.
    void send_echo(const std::string& destination, const std::string& path,
                   const std::string& text);
    std::string answer();

    bool has_owner(const std::string& name);
    /// Whether the name loses its owner within 20 s: the daemon learns of an end a moment later.
    bool loses_owner(const std::string& name);

    /// From here on keeps every "Farewell" signal, as "BLOCK PHASE".
    void listen_for_farewells();
    /// Serves the connection until so many have come, 20 s at most.
    const std::vector<std::string>& farewells(std::size_t count);

  private:
    void on_farewell(sd_bus_message& signal);
    void on_answer(sd_bus_message& reply);

    std::vector<std::string> farewells_;
    std::string answer_;
};

}  // namespace test
