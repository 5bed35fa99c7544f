#include "camera/cli/commands.hpp"
#include "common/process/memory.hpp"

int main(int argc, char** argv) {
    common::throw_without_memory_where(nullptr);
    const auto describe = [](int& count, char** arguments) {
        std::vector<std::vector<std::string>> children = camera::take_children(count, arguments);
        return common::Program{
            .version = "fenwa-camera " FENWA_VERSION,
            .help = "Plays the services of a camera on D-Bus, for blocks that have no camera",
            .footer =
                "Exit codes: 0 done, a stop by signal included; 1 what the scenario expects has "
                "not come; 2 the command line or a command's argument is wrong; 66 a file "
                "cannot be read; 69 the bus or the camera cannot be reached, a name cannot be "
                "had, the connection was lost, or the standard output takes nothing more; 70 an "
                "internal error, or the machine lacks memory or descriptors; 78 the configuration "
                "or scenario is wrong; or that of a program that has failed.",
            .commands = {camera::run_command(std::move(children)), camera::set_command(),
                         camera::start_command(), camera::stop_command(), camera::restart_command(),
                         camera::press_command(), camera::fail_command(), camera::show_command(),
                         camera::record_command(), camera::activate_command()}};
    };
    return common::run_command_line("fenwa-camera", describe, argc, argv);
}
