#pragma once

#include <systemd/sd-bus.h>

#include <vector>

#include "fenwa/block_configuration.hpp"

namespace host {

// Settings of blocks on the bus, a{sv}: a boolean is b, an integer x (any other integer type serves
// when it is read), a float d, a string s, an array of strings as.

/// Settings in the order in which they were given.
using SettingList = std::vector<Fenwa::BlockConfiguration::KeyValue>;

/// Appends settings as a{sv}.
/// @returns a negative errno where the message does not take them, as for text that is no UTF-8.
[[nodiscard]] int append_settings(sd_bus_message& message, const SettingList& settings);

/// Reads the a{sv} that stands next in a message.
/// @throws ControlError naming the key where a value is of another type, or where a key comes
///         twice; std::system_error when the message cannot be read.
[[nodiscard]] SettingList read_settings(sd_bus_message& message);

}  // namespace host
