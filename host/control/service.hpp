#pragma once

#include <systemd/sd-bus.h>

#include <string>

#include "common/bus/bus.hpp"
#include "host/control/reconfigurer.hpp"
#include "host/runtime/event_loop.hpp"
#include "host/runtime/running_graph.hpp"
#include "host/value/port_value.hpp"

namespace host {

/// The control interface of a running graph: others on the bus read and write its ports, give its
/// blocks new settings and watch its outputs. Calls are served from the host's loop, between two
/// passes of the blocks.
class Control {
  public:
    /// Exports the interface and has the loop serve the connection.
    /// @param graph started, and there as long as the loop runs; outlives this object.
    /// @param settings of that graph; outlives this object.
    /// @param bus a connection of its own, so that a client's calls never wait in the blocks'
    /// queue;
    ///        it owns the name already, and what has been called meanwhile is answered now.
    Control(RunningGraph& graph, Reconfigurer& settings, EventLoop& loop, common::BusPtr bus);
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;
    ~Control();

  private:
    static const sd_bus_vtable vtable_[];

    int read(sd_bus_message& call);
    int write(sd_bus_message& call);
    int reconfigure(sd_bus_message& call);
    int describe(sd_bus_message& call);

    void tell(const std::string& port, const PortValue& value) noexcept;

    RunningGraph& graph_;
    Reconfigurer& settings_;
    common::BusPtr bus_;
    common::SlotPtr object_;
    bool said_lost_ = false;
};

}  // namespace host
