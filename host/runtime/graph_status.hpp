#pragma once

#include <string>
#include <vector>

#include "common/text/json.hpp"
#include "host/runtime/bus_names.hpp"
#include "host/runtime/running_graph.hpp"

namespace host {

/// What a block does and waits for, at this moment:
///
///     {"phase": "started" | "running", "runs", "runs_per_second", "last_run", "published",
///      "waits_for": [BUS_NAME, …], "paced": false,
///      "last_call": {"service", "member", "age", "answered": false, "error", "message"},
///      "last_log": {"level", "message", "age"}}
///
/// A block that was never run since its start is "started". "last_run" and "age" are seconds ago;
/// "last_run", "last_call" and "last_log" are null before the first one. "waits_for" are the
/// services that the block has called or follows and that have no owner; it is null if the bus does
/// not tell. "paced" is whether the block's runs wait for their turns. "error" and "message" are
/// there after an error reply, and neither of them before an answer.
[[nodiscard]] common::Json status_json(const RunningGraph& graph, const BlockInstance& instance,
                                       const OwnedNames& names);

/// A block that has not published anything yet, and why.
struct SilentBlock {
    std::string name;
    std::string reason;  ///< "it waits for com.tarlo.X, which nobody owns"
};

/// The blocks with outputs that have published nothing, if something keeps them from it: a service
/// without an owner, a call that was refused or not answered, or an input whose block is such a
/// one. In file order. A block that waits for nothing but an event is none of them.
[[nodiscard]] std::vector<SilentBlock> silent_blocks(const RunningGraph& graph,
                                                     const OwnedNames& names);

}  // namespace host
