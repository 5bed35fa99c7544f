#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace common {

/// How `--help` of both programs looks: an option with what it takes ("--format text|json"), and
/// what it is for beside it, in lines of 80 columns. Man pages and shell completion say the same,
/// and completion reads it.
class HelpFormatter final : public CLI::Formatter {
  public:
    [[nodiscard]] std::string make_option(const CLI::Option* option,
                                          bool is_positional) const override;
    [[nodiscard]] std::string make_subcommand(const CLI::App* command) const override;
    [[nodiscard]] std::string make_footer(const CLI::App* app) const override;
};

}  // namespace common
