#pragma once

#include <string>
#include <vector>

#include "common/text/terminal.hpp"
#include "host/control/bus_setting.hpp"
#include "host/control/client.hpp"

namespace host {

/// What `fenwa set` was asked for.
struct SetOptions {
    ControlTarget target;
    std::string block;
    std::vector<std::string> changes;  ///< each "KEY=VALUE"
    common::ColorChoice color =
        common::ColorChoice::automatic;  ///< as every command; nothing is printed
};

/// Takes "KEY=VALUE" apart. The value is read as in a graph file, quotes and all; what is no value
/// there is a string as it stands.
/// @throws common::Failure (usage) where it is of another form, or of a kind that no block takes.
[[nodiscard]] Fenwa::BlockConfiguration::KeyValue parse_change(const std::string& text);

/// Changes settings of a block of a running host, all or none.
/// @throws common::Failure (usage) also where a key is given twice; else as ControlClient does.
void set_block_of_host(const SetOptions& options);

}  // namespace host
