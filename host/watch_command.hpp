#pragma once

#include "common/exit_code.hpp"
#include "common/terminal.hpp"
#include "host/control_client.hpp"
#include "host/event_writer.hpp"

namespace host {

/// What `fenwa watch` was asked for.
struct WatchOptions {
    ControlTarget target;
    EventFormat format = EventFormat::text;
    tool::ColorChoice color = tool::ColorChoice::automatic;
};

/// Prints every output of a running host that carries a new value, in the form in which that host's
/// own run prints it, until a signal comes.
/// @throws tool::Failure as ControlClient does; `unavailable` when the host or the bus goes away.
[[nodiscard]] tool::ExitCode watch_host(const WatchOptions& options);

}  // namespace host
