#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "common/text/json.hpp"

namespace host {

/// A drawn port.
struct DiagramPort {
    std::string name;
    std::string type;      ///< empty if unknown
    std::string remark;    ///< a note below the name, or empty
    std::string value;     ///< its current value; empty if not shown
    bool passive = false;  ///< an input that does not make its block run
};

/// A drawn block: inputs on the left, outputs on the right, the rest below.
struct DiagramBlock {
    std::string name;
    std::string type;
    std::vector<DiagramPort> inputs;
    std::vector<DiagramPort> outputs;
    std::vector<std::string> lines;       ///< settings and exported objects
    std::vector<std::string> troubles{};  ///< what keeps a running block from working
};

/// One end of a line: a block and one of its outputs or inputs, by their indices.
struct DiagramEnd {
    std::size_t block;
    std::size_t port;
};

struct DiagramConnection {
    DiagramEnd from;  ///< an output
    DiagramEnd to;    ///< an input
};

/// A service on the bus with the blocks that have called it or listen to it.
struct DiagramService {
    std::string name;
    std::vector<std::size_t> blocks;
};

/// A drawn graph, of a file or of a running host.
struct Diagram {
    std::vector<DiagramBlock> blocks;
    std::vector<DiagramConnection> connections;
    std::vector<DiagramService> services;
};

/// Whether the values of ports are drawn.
enum class DiagramValues { shown, hidden };

/// Makes a picture of a description in the form of `Describe` (host/control/service.hpp), in which
/// a block need not have "services", "exports" and "status". A port that only a connection names,
/// because its block could not be built, is drawn too.
/// @throws common::Json::exception if the description has another form.
[[nodiscard]] Diagram make_diagram(const common::Json& description, DiagramValues values);

/// The groups of blocks that are linked by connections or services, ordered by their first blocks.
[[nodiscard]] std::vector<std::vector<std::size_t>> connected_parts(const Diagram& diagram);

}  // namespace host
