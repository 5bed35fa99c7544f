#pragma once

#include <string>

#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"
#include "host/control/client.hpp"

namespace host {

/// Prints the value of a port of a running host, "BLOCK.PORT", on stdout, bold as in event lines.
/// @throws common::Failure as ControlClient does.
[[nodiscard]] common::ExitCode read_port_of_host(const ControlTarget& target,
                                                 const std::string& port,
                                                 common::ColorChoice color);

/// Writes a value to an input of a running host that nothing is connected to.
/// @param value read as the port's type asks for, which the host is asked for first.
/// @throws common::Failure as ControlClient does; `usage` where the value is none of that type.
void write_port_of_host(const ControlTarget& target, const std::string& port,
                        const std::string& value);

}  // namespace host
