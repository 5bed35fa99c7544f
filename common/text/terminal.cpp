#include "common/text/terminal.hpp"

#include <unistd.h>

#include <cstdlib>

namespace common {

ColorChoice color_choice(std::string_view word) {
    if (word == "always")
        return ColorChoice::always;
    return word == "never" ? ColorChoice::never : ColorChoice::automatic;
}

bool use_color(ColorChoice choice, std::FILE* stream) {
    if (choice != ColorChoice::automatic)
        return choice == ColorChoice::always;
    const char* no_color = std::getenv("NO_COLOR");
    if (no_color != nullptr && *no_color != '\0')
        return false;
    // A program that passes our lines on has a terminal, and we have a pipe.
    const char* force = std::getenv("CLICOLOR_FORCE");
    if (force != nullptr && *force != '\0' && std::string_view(force) != "0")
        return true;
    const char* term = std::getenv("TERM");
    if (term == nullptr || std::string_view(term) == "dumb")
        return false;
    return isatty(fileno(stream)) == 1;
}

Palette::Palette(bool on) {
    if (!on)
        return;
    bold = "\033[1m";
    dim = "\033[2m";
    red = "\033[1;31m";
    green = "\033[1;32m";
    yellow = "\033[1;33m";
    cyan = "\033[1;36m";
    reset = "\033[0m";
}

}  // namespace common
