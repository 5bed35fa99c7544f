#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "common/text/json.hpp"

namespace host {

/// A port as it is drawn.
struct PicturePort {
    std::string name;
    std::string type;      ///< empty where it is not known
    std::string remark;    ///< what else there is to say of it, or empty
    std::string value;     ///< what it holds now; empty where that is not to be shown
    bool passive = false;  ///< an input at which an arrival makes no block run
};

/// A block as it is drawn: inputs to the left, outputs to the right, the rest below.
struct PictureBlock {
    std::string name;
    std::string type;
    std::vector<PicturePort> inputs;
    std::vector<PicturePort> outputs;
    std::vector<std::string> lines;  ///< settings and exported objects
};

/// One end of a line: a block and one of its outputs or inputs, by their places.
struct PictureEnd {
    std::size_t block;
    std::size_t port;
};

struct PictureConnection {
    PictureEnd from;  ///< an output
    PictureEnd to;    ///< an input
};

/// A service on the bus with the blocks that have talked to it.
struct PictureService {
    std::string name;
    std::vector<std::size_t> blocks;
};

/// A graph as it is drawn, whether it runs or only stands in a file.
struct Diagram {
    std::vector<PictureBlock> blocks;
    std::vector<PictureConnection> connections;
    std::vector<PictureService> services;
};

/// Whether what ports hold is drawn.
enum class DiagramValues { shown, hidden };

/// Makes a picture of a description in the form of `describe(const RunningGraph&)`, of which every
/// block may also have "services" ([NAME, …]) and "exports" ([{"path", "interface"}, …]). A port
/// that only a connection knows, because its block could not be looked at, is drawn too.
/// @throws common::Json::exception when the description is of another form.
[[nodiscard]] Diagram make_diagram(const common::Json& description, DiagramValues values);

/// The blocks that hang together, by connections or by a service, in the order of the first of
/// each.
[[nodiscard]] std::vector<std::vector<std::size_t>> connected_parts(const Diagram& picture);

}  // namespace host
