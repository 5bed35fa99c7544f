#pragma once

#include <map>
#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "common/text/suggestion.hpp"
#include "fenwa/block.hpp"
#include "host/graph/graph.hpp"
#include "host/graph/terminations.hpp"

namespace host {

/// A block as the connections of a graph see it: with the inputs that the host provides for it.
struct ConnectableBlock {
    Fenwa::Block* block = nullptr;               ///< null for one that could not be constructed
    const Terminations* terminations = nullptr;  ///< never null where there is a block

    /// The block's own input of that name, or else the one that the host provides, or null.
    [[nodiscard]] Fenwa::InPortInternal* inport(const std::string& name) const;
    /// Names of all these, the block's own first.
    [[nodiscard]] std::vector<std::string> inport_names() const;
};

/// The blocks of a graph by name.
using BlocksByName = std::map<std::string, ConnectableBlock>;

/// What a connection needs to know of a block's ports.
struct BlockPorts {
    std::vector<Fenwa::PortInfo> inputs;  ///< those that the host provides after the block's own
    std::vector<Fenwa::PortInfo> outputs;
    /// False for a block that could not be constructed: it may have had more ports to add.
    bool complete = false;
};

/// The ports of the blocks of a graph, by the blocks' names.
using PortsByName = std::map<std::string, BlockPorts>;

/// The ports of a block that is there.
[[nodiscard]] BlockPorts ports_of(const ConnectableBlock& block);

/// Helps with the name of a port that is none: the nearest of `names`, or all of them.
/// @param kind "input", "output" or "port".
[[nodiscard]] std::string port_help(const std::string& typed, const char* kind,
                                    const std::vector<std::string>& names,
                                    common::Suggester& suggester);

/// Checks the ends of all connections, as far as the ports of their blocks are known.
void check_connections(const Graph& graph, const PortsByName& blocks,
                       common::Diagnostics& diagnostics);

}  // namespace host
