#pragma once

#include <systemd/sd-bus.h>

#include <string>

#include "common/bus/bus.hpp"
#include "host/control/reconfigurer.hpp"
#include "host/runtime/bus_names.hpp"
#include "host/runtime/event_loop.hpp"
#include "host/runtime/running_graph.hpp"
#include "host/value/port_value.hpp"

namespace host {

/// The control interface of a running graph: clients on the bus read and write its ports, give its
/// blocks new settings, rebuild them and watch its outputs, of which none is signalled while nobody
/// has subscribed. Calls are served from the host's loop,
/// between two passes of the blocks. `Describe` returns, with the blocks in file order:
///
///     {"blocks": [{"name", "type", "settings": {KEY: VALUE, …},
///                  "inputs": [{"name", "type", "triggers", "value"}, …],
///                  "terminated_inputs": [{"name", "type", "value"}, …],
///                  "outputs": [{"name", "type", "value"}, …],
///                  "exports": [{"path", "interface"}, …], "services": [NAME, …],
///                  "status": {…}}, …],
///      "connections": [{"from": "BLOCK.PORT", "to": "BLOCK.PORT"}, …]}
///
/// The ports are as in `ports_to_json`; the settings are those that the block runs with, its own
/// defaults included; "services" are the bus names that the block has called or listens to, in the
/// order of the first time, without the bus daemon and unique names; "status" as in `status_json`.
class Control {
  public:
    /// Exports the interface and has the loop serve the connection.
    /// @param graph started; outlives this object.
    /// @param reconfigurer of that graph; outlives this object.
    /// @param bus a connection of its own, so that a client's calls never wait in the blocks'
    ///        queue; it owns the name already, and calls that have come meanwhile are answered now.
    Control(RunningGraph& graph, Reconfigurer& reconfigurer, EventLoop& loop, common::BusPtr bus);
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;
    ~Control();

  private:
    static const sd_bus_vtable vtable_[];

    int read(sd_bus_message& call);
    int write(sd_bus_message& call);
    int reconfigure(sd_bus_message& call);
    int rebuild(sd_bus_message& call);
    int describe(sd_bus_message& call);
    int subscribe(sd_bus_message& call);
    void on_no_subscriber() noexcept { graph_.watch_outputs({}); }

    void emit_output_changed(const std::string& port, const PortValue& value) noexcept;

    RunningGraph& graph_;
    Reconfigurer& reconfigurer_;
    common::BusPtr bus_;
    BusNames names_;
    common::SlotPtr object_;
    common::TrackPtr subscribers_;
    bool reported_lost_ = false;
};

}  // namespace host
