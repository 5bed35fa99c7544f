#pragma once

#include <string>

#include "common/exit_code.hpp"
#include "common/terminal.hpp"
#include "host/control_client.hpp"

namespace host {

/// Prints the value of a port of a running host, "BLOCK.PORT", on stdout, bold as in event lines.
/// @throws tool::Failure as ControlClient does.
[[nodiscard]] tool::ExitCode read_port_of_host(const ControlTarget& target, const std::string& port,
                                               tool::ColorChoice color);

/// Writes a value to an input of a running host that nothing is connected to.
/// @param value read as the port's type asks for, which the host is asked for first.
/// @throws tool::Failure as ControlClient does; `usage` where the value is none of that type.
void write_port_of_host(const ControlTarget& target, const std::string& port,
                        const std::string& value);

}  // namespace host
