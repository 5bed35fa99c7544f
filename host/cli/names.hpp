#pragma once

#include <string>

#include "common/process/exit_code.hpp"
#include "host/control/client.hpp"

namespace host {

/// What `fenwa names` lists.
enum class NameKind {
    ports,     ///< all ports, "BLOCK.PORT"
    inputs,    ///< those that can be written, "BLOCK.PORT"
    blocks,    ///< the blocks
    settings,  ///< the keys of one block's settings
};

/// Prints names out of a running host on stdout, one a line, for shell completion.
/// @param block whose settings are meant, with `NameKind::settings`.
/// @throws common::Failure as ControlClient does.
[[nodiscard]] common::ExitCode print_names(const ControlTarget& target, NameKind kind,
                                           const std::string& block);

}  // namespace host
