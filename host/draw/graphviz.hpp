#pragma once

#include <string>

namespace host {

/// Renders a DOT text with Graphviz's program `dot` into a file that ends with ".svg" or ".png".
/// The file is replaced as a whole after rendering, and kept on a failure.
/// @throws common::Failure (unavailable) if Graphviz is missing or fails, with its message, or if
///         the file cannot be written.
void render(const std::string& dot, const std::string& file);

/// The mistake in the name of a picture file; empty for none.
[[nodiscard]] std::string check_picture_name(const std::string& file);

}  // namespace host
