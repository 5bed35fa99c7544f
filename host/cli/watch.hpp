#pragma once

#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"
#include "host/control/client.hpp"
#include "host/output/event_writer.hpp"

namespace host {

/// What `fenwa watch` was asked for.
struct WatchOptions {
    ControlTarget target;
    EventFormat format = EventFormat::text;
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// Prints every output of a running host that carries a new value, in the form in which that host's
/// own run prints it, until a signal comes.
/// @throws common::Failure as ControlClient does; `unavailable` when the host or the bus goes away.
[[nodiscard]] common::ExitCode watch_host(const WatchOptions& options);

}  // namespace host
