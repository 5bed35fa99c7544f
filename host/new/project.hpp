#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace host {

/// Files that were written, or a line added to them, in this order.
using WrittenFiles = std::vector<std::filesystem::path>;

/// Whether a plug-in can have this name: lower-case letters and digits with single dashes between,
/// a letter first, 50 at most, and no name that CMake keeps for itself.
[[nodiscard]] bool is_plugin_name(const std::string& name);
/// Whether a block type can have this name: letters and digits, a capital first, 50 at most.
[[nodiscard]] bool is_block_name(const std::string& name);
/// The block type that a new plug-in begins with: "lamp-control" gives "LampControl".
[[nodiscard]] std::string first_block_of(const std::string& plugin);

/// Writes a project for a plug-in into a new folder of its name.
/// @param parent where the folder is made; exists.
/// @throws common::Failure `usage` if the folder exists already, `unavailable` if something cannot
///         be written; nothing is left behind then.
WrittenFiles write_plugin(const std::string& name, const std::filesystem::path& parent);

/// Writes a block with its test into a project that `write_plugin` has written, registers it and
/// adds it to the data file of the plug-in.
/// @throws common::Failure `usage` if the folder is not such a project or has such a file already,
///         `unreadable` and `unavailable` if a file cannot be read or written. No file is left
///         behind then.
WrittenFiles write_block(const std::string& type, const std::filesystem::path& project);

}  // namespace host
