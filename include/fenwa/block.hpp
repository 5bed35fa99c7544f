#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fenwa/api.hpp"
#include "fenwa/block_configuration.hpp"
#include "fenwa/port.hpp"
#include "fenwa/tools.hpp"

namespace Fenwa {

/// Description of one port, for a host that draws or checks a graph.
struct PortInfo {
    std::string name;
    Datatype datatype;
};

/// Base class of every block.
///
/// The framework calls, in this order: the factory (constructor), `setup`, `start`, then `run`
/// whenever an input or event port of the block has been triggered, `reconfigure` when settings
/// change, `stop`, the destructor; all on one thread. sd-bus callbacks may come on another.
///
/// The order of the virtual operations is ABI; the number after each is its slot.
class FENWA_API Block {
  public:
    /// @param name the instance name that the graph gives; any text, also empty.
    /// @param config stored as the block's settings, so it includes the block's own defaults.
    Block(std::string name, const BlockConfiguration& config);
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    /// Releases the ports, event ports and exported objects that the block added.
    virtual ~Block();  // 0, 1

    /// Returns settings for the framework, such as "termination_cfg.inports"; none by default.
    /// Called once, before `start`, with the configuration that the block was built with.
    virtual BlockConfiguration setup(const BlockConfiguration& config);  // 2

    [[nodiscard]] virtual std::string get_name() const;  // 3
    virtual void set_name(std::string name);             // 4

    /// The port of that name, owned by the block; null if there is none. Names in the order added.
    [[nodiscard]] virtual InPortInternal* get_inport(const std::string& name) const;    // 5
    [[nodiscard]] virtual std::vector<std::string> get_inport_names() const;            // 6
    [[nodiscard]] virtual OutPortInternal* get_outport(const std::string& name) const;  // 7
    [[nodiscard]] virtual std::vector<std::string> get_outport_names() const;           // 8

    /// With these three a host treats a block as a composite of blocks: a plain block is its own
    /// only member and has no inner structure.
    [[nodiscard]] virtual std::vector<Block*> get_members() { return {this}; }   // 9
    [[nodiscard]] virtual std::vector<Block*> get_inner_blocks() { return {}; }  // 10
    [[nodiscard]] virtual std::vector<std::pair<std::string, std::string>>
    get_inner_connections() {  // 11
        return {};
    }

    [[nodiscard]] virtual std::vector<PortInfo> get_inports_info() const;   // 12
    [[nodiscard]] virtual std::vector<PortInfo> get_outports_info() const;  // 13
    /// File-descriptor ports; none unless a block overrides it.
    [[nodiscard]] virtual std::vector<PortInfo> get_fdports_info() const;  // 14

    virtual void start();  // 15: does nothing
    virtual void stop();   // 16: does nothing
    /// Takes one step. @returns true; the framework ignores it.
    virtual bool run();  // 17
    /// Both arguments are complete configurations; does nothing by default.
    virtual void reconfigure(const BlockConfiguration& before,
                             const BlockConfiguration& after);  // 18

    // Operations that a block calls on itself.

    /// Makes an event port, owned by the block.
    EventPort* make_eventport(const std::string& name);

    /// Takes ownership of a port and returns it.
    InPortInternal* add_inport(std::unique_ptr<InPortProvider> provider);
    OutPortInternal* add_outport(std::unique_ptr<OutPortInternal> port);

    /// Exports an object on the framework's connection until the block is destroyed: at once or,
    /// in a constructor, when the host adopts the block. The host logs a failure, such as a second
    /// object at the same path and interface. Thread of `run()`.
    /// @param vtable method table in sd-bus's form; must outlive the block.
    /// @param userdata passed to the table's callbacks.
    void add_dbus(const std::string& path, const std::string& interface,
                  const sd_bus_vtable* vtable, void* userdata);

    /// The block's tools, owned by the framework.
    /// @throws std::logic_error in a constructor: the host adopts the block after it.
    [[nodiscard]] const InitTools& get_tools() const;

  private:
    friend class EventPort;
    friend class HostAccess;
    friend class ReadyQueue;

    struct State;

    std::unique_ptr<State> state_;
};

}  // namespace Fenwa
