#pragma once

#include <string>

namespace host {

/// Renders a DOT text with Graphviz's program `dot` into a file that ends with ".svg" or ".png".
/// The file is replaced as a whole once it has been rendered; otherwise it stays as it was.
/// @throws common::Failure (unavailable) when Graphviz is not there or fails, with what it says, or
///         when the file cannot be written.
void render(const std::string& dot, const std::string& file);

/// Says what is wrong with the name of a file that is to be rendered; empty where nothing is.
[[nodiscard]] std::string check_picture_name(const std::string& file);

}  // namespace host
