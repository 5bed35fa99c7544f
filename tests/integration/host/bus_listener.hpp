#pragma once

#include <systemd/sd-bus.h>

#include <string>
#include <vector>

#include "common/bus/bus.hpp"

namespace test {

/// Another connection on the bus of a test: calls, listens, owns names.
class BusListener {
  public:
    explicit BusListener(const std::string& address);

    /// Calls "com.example.Echo1.Echo". @returns the answer, or the name of the error.
    std::string echo(const std::string& destination, const std::string& path,
                     const std::string& text);

    /// Sends that call without waiting for its answer; `answer` waits for it.
    void send_echo(const std::string& destination, const std::string& path,
                   const std::string& text);
    std::string answer();

    /// Owns a name. What is called there gets no answer unless something else is served.
    void own(const std::string& name);
    bool has_owner(const std::string& name);
    /// Whether the name has no owner any more, soon: the daemon learns of an end a moment later.
    bool loses_owner(const std::string& name);

    /// From here on keeps every "Farewell" signal, as "BLOCK PHASE".
    void listen_for_farewells();
    /// Serves what has come until there are so many, 20 s at most.
    const std::vector<std::string>& farewells(std::size_t count);

  private:
    static int on_farewell(sd_bus_message* signal, void* userdata, sd_bus_error* error);
    static int on_answer(sd_bus_message* reply, void* userdata, sd_bus_error* error);
    common::MessagePtr echo_call(const std::string& destination, const std::string& path,
                                 const std::string& text);
    template <class Done>
    void serve_until(Done done);

    common::BusPtr bus_;
    std::vector<std::string> farewells_;
    std::string answer_;
};

}  // namespace test
