#include <memory>

#include "host/cli/check.hpp"
#include "host/cli/options.hpp"

namespace host {

Command add_check_command(CLI::App& program) {
    const auto options = std::make_shared<CheckOptions>();
    CLI::App& check =
        add_command(program, "check", "Reports every mistake of a graph; needs no bus");
    add_graph(check, options->graph);
    add_plugin_dirs(check, options->plugin_dirs);
    add_color(check, options->color);
    check.add_flag("--deny-warnings", options->deny_warnings,
                   "Warnings count as mistakes for the exit code");
    return {&check, [options] { return check_graph_file(*options); }};
}

}  // namespace host
