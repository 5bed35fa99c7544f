#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "common/text/suggestion.hpp"
#include "fenwa/block.hpp"
#include "host/graph/graph.hpp"
#include "host/value/port_value.hpp"

namespace host {

/// The input ports that the host provides on a block's behalf, as the block's setup requests:
/// "termination_cfg.inports" (names) and "termination_cfg.types" (paths of datatypes, as many),
/// each with its first value in "termination_cfg.NAME_def". The block itself has no such port, so
/// a value that arrives there does not make it run.
class Terminations {
  public:
    /// None.
    Terminations() = default;
    /// Reads what `block` returned from its setup. Each mistake becomes a diagnostic at the block's
    /// location: lists of different lengths, a name that is invalid or taken, an unknown datatype,
    /// a first value of another type. A missing first value is a warning, and the input starts with
    /// the type's T{}; a timer source takes none.
    Terminations(const Fenwa::BlockConfiguration& settings, const Fenwa::Block& block,
                 const BlockEntry& entry, common::Diagnostics& diagnostics);

    /// The port of that name, owned by this object, or null. It holds its first value until it is
    /// connected.
    [[nodiscard]] Fenwa::InPortInternal* find(const std::string& name) const;
    /// All names, in the order of the setup.
    [[nodiscard]] std::vector<std::string> names() const;
    /// From here on each port holds its first value again.
    void disconnect();

  private:
    struct Input {
        Input(const std::string& name, const Fenwa::Datatype& datatype, PortValue default_value);

        PortValue first;
        Fenwa::InPortInternal port;
    };

    std::vector<std::unique_ptr<Input>> inputs_;
};

/// A block as the connections of a graph see it: with the inputs that the host provides for it.
struct ConnectableBlock {
    Fenwa::Block* block = nullptr;               ///< null if it could not be constructed
    const Terminations* terminations = nullptr;  ///< not null if `block` is not

    /// The block's own input of that name, or else the one that the host provides, or null.
    [[nodiscard]] Fenwa::InPortInternal* inport(const std::string& name) const;
    /// Names of all these, the block's own first.
    [[nodiscard]] std::vector<std::string> inport_names() const;
};

/// The ports of one block, for checking connections.
struct BlockPorts {
    std::vector<Fenwa::PortInfo> inputs;  ///< the block's own, then those that the host provides
    std::vector<Fenwa::PortInfo> outputs;
    /// False if the block could not be constructed: it may have had more ports to add.
    bool complete = false;
};

/// The ports of the blocks of a graph, by the blocks' names.
using PortsByName = std::map<std::string, BlockPorts>;

/// The ports of a block, which is not null.
[[nodiscard]] BlockPorts ports_of(const ConnectableBlock& block);

/// Help for an unknown port name: the nearest of `names`, or all of them.
/// @param kind "input", "output" or "port".
[[nodiscard]] std::string port_help(const std::string& typed, const char* kind,
                                    const std::vector<std::string>& names,
                                    common::Suggester& suggester);

/// Checks the ends of all connections, as far as the ports of their blocks are known.
void check_connections(const Graph& graph, const PortsByName& blocks,
                       common::Diagnostics& diagnostics);

}  // namespace host
