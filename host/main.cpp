#include "common/cli/command_line.hpp"
#include "common/process/memory.hpp"
#include "framework/shared/log_sink.hpp"
#include "host/cli/options.hpp"
#include "host/output/activity.hpp"
#include "host/output/log_to_stderr.hpp"

int main(int argc, char** argv) {
    common::throw_without_memory_where(host::in_foreign_code);
    Fenwa::set_log_sink(host::log_to_stderr);
    const auto describe = [](int& /*argc*/, char** /*argv*/) {
        return common::Program{
            .version = "fenwa " FENWA_VERSION,
            .help = "Runs graphs of Fenwa blocks on any Linux machine",
            .footer =
                "Exit codes: 0 done, a stop by signal included; 2 the command line is wrong; 66 "
                "a file cannot be read; 69 the bus cannot be reached, a name cannot be had, "
                "the connection was lost, or a file cannot be written; 70 a block or a plug-in "
                "threw, crashed or hung, or the machine lacks memory or descriptors; 78 "
                "the graph is wrong.",
            .commands = {host::run_command(), host::check_command(), host::read_command(),
                         host::write_command(), host::set_command(), host::watch_command(),
                         host::status_command(), host::inspect_command(), host::list_command(),
                         host::graph_command(), host::new_command()}};
    };
    return common::run_command_line("fenwa", describe, argc, argv);
}
