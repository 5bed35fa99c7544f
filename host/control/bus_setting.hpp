#pragma once

#include <systemd/sd-bus.h>

#include <vector>

#include "fenwa/block_configuration.hpp"

namespace host {

// Settings of blocks on the bus, a{sv}: a boolean is b, an integer x (any other integer type is
// read too), a float d, a string s, an array of strings as.

/// Settings in the order in which they were given.
using SettingList = std::vector<Fenwa::BlockConfiguration::KeyValue>;

/// Appends settings as a{sv}.
/// @returns a negative errno if the message refuses them, as it does text that is not UTF-8.
[[nodiscard]] int append_settings(sd_bus_message& message, const SettingList& settings);

/// Reads the next a{sv} of a message.
/// @throws ControlError naming the key if a value is of another type, or a key comes twice;
///         std::system_error if the message cannot be read.
[[nodiscard]] SettingList settings_from_message(sd_bus_message& message);

}  // namespace host
