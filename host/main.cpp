#include "common/cli/command_line.hpp"
#include "framework/shared/log_sink.hpp"
#include "host/cli/options.hpp"
#include "host/output/log_to_stderr.hpp"

namespace {

constexpr const char* exit_codes =
    "Exit codes: 0 done, a stop by signal included; 2 the command line is wrong; 66 a file cannot "
    "be read; 69 the bus cannot be reached, a name cannot be had, or the connection was lost; 70 "
    "a block or a plug-in threw, crashed or hung; 78 the graph is wrong.";

}  // namespace

int main(int argc, char** argv) {
    Fenwa::set_log_sink(host::log_to_stderr);
    CLI::App app("Runs graphs of Fenwa blocks on any Linux machine", "fenwa");
    common::prepare_program(app, host::program_version, exit_codes);
    const std::vector<host::Command> commands = {
        host::add_run_command(app),     host::add_check_command(app), host::add_read_command(app),
        host::add_write_command(app),   host::add_set_command(app),   host::add_watch_command(app),
        host::add_inspect_command(app), host::add_graph_command(app), host::add_names_command(app),
    };
    return common::run_command_line(app, argc, argv, [&commands] {
        for (const host::Command& command : commands) {
            if (command.app->parsed())
                return command.run();
        }
        // Unreachable: one command is required.
        return common::ExitCode::usage;
    });
}
