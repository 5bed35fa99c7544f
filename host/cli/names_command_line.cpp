#include <map>
#include <memory>

#include "host/cli/names.hpp"
#include "host/cli/options.hpp"

namespace host {
namespace {

struct NamesOptions {
    ControlTarget target;
    NameKind kind = NameKind::ports;
    std::string block;
};

}  // namespace

Command add_names_command(CLI::App& program) {
    static const std::map<std::string, NameKind> kinds{{"ports", NameKind::ports},
                                                       {"inputs", NameKind::inputs},
                                                       {"blocks", NameKind::blocks},
                                                       {"settings", NameKind::settings}};
    const auto options = std::make_shared<NamesOptions>();
    CLI::App& names = add_command(program, "names", "Lists names of a running host");
    names.group("");
    add_target(names, options->target);
    names
        .add_option_function<std::string>(
            "KIND", [options](const std::string& word) { options->kind = kinds.at(word); },
            "What is to be listed")
        ->check(CLI::IsMember({"ports", "inputs", "blocks", "settings"}))
        ->required();
    names.add_option("BLOCK", options->block, "The block whose settings are meant");
    return {&names,
            [options] { return print_names(options->target, options->kind, options->block); }};
}

}  // namespace host
