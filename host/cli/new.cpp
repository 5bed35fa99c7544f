#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <string>

#include "common/cli/options.hpp"
#include "common/events/print_text.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/line_text.hpp"
#include "common/text/terminal.hpp"
#include "host/cli/options.hpp"
#include "host/new/project.hpp"

namespace host {
namespace {

using common::ExitCode;
using common::Failure;

struct NewOptions {
    std::string kind;
    std::string name;
    std::string folder = ".";
    common::ColorChoice color = common::ColorChoice::automatic;
};

WrittenFiles write_new(const NewOptions& options) {
    if (options.kind == "plugin") {
        if (!is_plugin_name(options.name))
            throw Failure(
                ExitCode::usage,
                fmt::format("{} is not a name for a plug-in: at most 50 lower-case letters, "
                            "digits and single dashes, a letter first, and no target of "
                            "CMake's such as 'test'",
                            common::in_quotes(options.name)));
        return write_plugin(options.name, options.folder);
    }
    if (!is_block_name(options.name))
        throw Failure(ExitCode::usage,
                      fmt::format("{} is not a name for a block: at most 50 letters "
                                  "and digits, a capital first",
                                  common::in_quotes(options.name)));
    return write_block(options.name, options.folder);
}

/// Prints what was written, and how to go on.
ExitCode print_new(const NewOptions& options) {
    const std::filesystem::path folder(options.folder);
    if (!std::filesystem::is_directory(folder))
        throw Failure(ExitCode::usage,
                      fmt::format("{} is not a folder", common::in_quotes(options.folder)));
    std::string text;
    for (const std::filesystem::path& file : write_new(options))
        text += file.lexically_normal().string() + '\n';
    const std::string project = options.kind == "plugin"
                                    ? (folder / options.name).lexically_normal().string()
                                    : folder.lexically_normal().string();
    common::print_text(text + fmt::format("\nNext:\n"
                                          "    cd {}\n"
                                          "    cmake -S . -B build && cmake --build build\n"
                                          "    ctest --test-dir build --output-on-failure\n",
                                          project));
    return ExitCode::done;
}

}  // namespace

common::Command new_command() {
    const auto options = std::make_shared<NewOptions>();
    return {.name = "new",
            .help = "Writes the project of a plug-in, or a further block with its test",
            .arguments = {{.name = "KIND",
                           .choices = {"plugin", "block"},
                           .help = "plugin: a project in a new folder NAME; block: a block in one",
                           .take = common::into(options->kind),
                           .required = true},
                          {.name = "NAME",
                           .help = "Of a plug-in, such as lamp-control; of a block, such as Lamp",
                           .take = common::into(options->name),
                           .required = true}},
            .options = {{.name = "--in",
                         .value = "DIR",
                         .help = "Where the project is made; for a block, the project",
                         .default_text = "the current folder",
                         .take = common::into(options->folder)},
                        common::color_option(options->color)},
            .run = [options] { return print_new(*options); }};
}

}  // namespace host
