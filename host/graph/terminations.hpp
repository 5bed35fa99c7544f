#pragma once

#include <memory>
#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "fenwa/block.hpp"
#include "host/graph/graph.hpp"
#include "host/value/port_value.hpp"

namespace host {

/// The input ports that the host provides on a block's behalf, as the block's setup asks for:
/// "termination_cfg.inports" (names) and "termination_cfg.types" (paths of datatypes, as many),
/// each with its first value in "termination_cfg.NAME_def". The block itself has no such port, so
/// what arrives there does not make it run.
class Terminations {
  public:
    /// None.
    Terminations() = default;
    /// Reads them out of what `block` handed over in its setup. Each mistake becomes a diagnostic
    /// at the block's place in the graph: lists of different lengths, a name that is none or that
    /// is taken, an unknown datatype, a first value of another type; a missing one is a warning,
    /// and the input then starts with the type's T{}. A timer source takes no first value.
    Terminations(const Fenwa::BlockConfiguration& settings, const Fenwa::Block& block,
                 const BlockEntry& entry, common::Diagnostics& diagnostics);

    /// The port of that name, owned by this object, or null. It reads its first value until it is
    /// connected to another.
    [[nodiscard]] Fenwa::InPortInternal* find(const std::string& name) const;
    /// All names, in the order in which they were asked for.
    [[nodiscard]] std::vector<std::string> names() const;

  private:
    struct Input {
        Input(const std::string& name, const Fenwa::Datatype& datatype, PortValue first);

        PortValue first;
        Fenwa::InPortInternal port;
    };

    std::vector<std::unique_ptr<Input>> inputs_;
};

}  // namespace host
