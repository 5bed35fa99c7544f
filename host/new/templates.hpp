#pragma once

#include <span>
#include <string_view>

namespace host {

/// A file that `fenwa new` writes. In its path and its text, @NAME@ stands for the plug-in, @TYPE@
/// for the block and @FILE@ for the block in lower case.
struct Template {
    std::string_view path;  ///< below the project's folder
    std::string_view text;
};

/// The templates in host/new/templates, which are built into the program.
/// A whole project, but for its first block.
[[nodiscard]] std::span<const Template> plugin_templates();
/// A block and its test.
[[nodiscard]] std::span<const Template> block_templates();
/// What is appended to the data file of a plug-in for a block.
[[nodiscard]] std::string_view block_data_template();

}  // namespace host
