#pragma once

#include <string>

#include "host/graph/graph.hpp"
#include "host/runtime/running_graph.hpp"
#include "host/value/port_value.hpp"

namespace host {

// The ports of a running graph by their names, "BLOCK.PORT". An unknown name is refused with the
// nearest one.

/// Refuses the name of a block that the graph does not have.
/// @throws ControlError
[[noreturn]] void refuse_unknown_block(const Graph& graph, const std::string& block);

/// The value of any input, those that the host provides included, or of any output.
/// @throws ControlError for an unknown port, or a datatype that the host does not know.
[[nodiscard]] PortValue read_port(const RunningGraph& graph, const std::string& port);

/// An input that may be written.
struct WritableInput {
    Endpoint end;
    Fenwa::Datatype datatype;
};

/// The input of that name.
/// @throws ControlError for an input that is unknown, is connected, or is of a datatype that cannot
///         be written: a timer source, or one that the host does not know.
[[nodiscard]] WritableInput find_writable(const RunningGraph& graph, const std::string& port);

}  // namespace host
