// A graph file: it is read, compared with itself and drawn.

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>

#include "host/draw/diagram.hpp"
#include "host/draw/dot.hpp"
#include "host/graph/block_json.hpp"
#include "host/graph/diff.hpp"
#include "host/graph/graph.hpp"
#include "tests/fuzz/memory_file.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryFile file(data, size);
    common::Diagnostics diagnostics(file.path());
    const std::optional<host::Graph> graph = host::read_graph(file.path(), diagnostics);
    std::ostringstream mistakes;
    diagnostics.print(mistakes, true);
    if (!graph)
        return 0;

    const host::GraphDiff diff = host::compare_graphs(*graph, *graph, diagnostics);
    if (!diff.changed.empty() || !diff.retyped.empty() || !diff.added.empty() ||
        !diff.removed.empty() || !diff.connected.empty() || !diff.disconnected.empty())
        std::abort();
    common::Json blocks = common::Json::array();
    for (const host::BlockEntry& entry : graph->blocks)
        blocks.push_back(host::to_json(entry, {}, entry.configuration()));
    const common::Json description{{"blocks", std::move(blocks)},
                                   {"connections", host::to_json(graph->connections)}};
    (void)host::to_dot(host::make_diagram(description, host::DiagramValues::hidden));
    (void)common::json_line(description);
    return 0;
}
