#pragma once

#include <cstdio>
#include <string_view>

namespace common {

enum class ColorChoice { automatic, always, never };

/// "auto", "always" or "never" of `--color`; `automatic` for anything else.
[[nodiscard]] ColorChoice color_choice(std::string_view word);

/// Whether to colour the output to `stream`: with `automatic` when it is a terminal, TERM is not
/// "dumb" and NO_COLOR is unset or empty (no-color.org), or when CLICOLOR_FORCE asks for it
/// (bixense.com/clicolors).
[[nodiscard]] bool use_color(ColorChoice choice, std::FILE* stream);

/// SGR sequences, empty when `on` is false.
struct Palette {
    explicit Palette(bool on);
    std::string_view bold, dim, red, green, yellow, cyan, reset;
};

}  // namespace common
