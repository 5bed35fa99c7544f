#pragma once

#include <systemd/sd-bus.h>

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// A running host with a control interface.
struct FoundHost {
    std::string name;              ///< its bus name
    std::optional<pid_t> process;  ///< empty if the bus does not give it
};

/// The hosts on a bus, by their names: those whose control object introspects as one. Asks all
/// owners of well-known names at once.
/// @param limit for all answers.
/// @throws std::system_error if the bus does not list its names.
[[nodiscard]] std::vector<FoundHost> find_hosts(sd_bus& bus, std::chrono::microseconds limit);

}  // namespace host
