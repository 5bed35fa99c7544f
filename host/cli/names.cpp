#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/process/exit_code.hpp"
#include "common/text/json.hpp"
#include "common/text/line_text.hpp"
#include "host/cli/options.hpp"
#include "host/control/client.hpp"
#include "host/output/standard_output.hpp"

namespace host {
namespace {

using common::Json;

/// What `fenwa names` lists.
enum class NameKind {
    ports,     ///< all ports, "BLOCK.PORT"
    inputs,    ///< those that can be written, "BLOCK.PORT"
    blocks,    ///< the blocks
    settings,  ///< the keys of one block's settings
};

void add_ports(const Json& block, const char* list, std::vector<std::string>& names) {
    for (const Json& port : block.at(list))
        names.push_back(block.at("name").get<std::string>() + '.' +
                        port.at("name").get<std::string>());
}

/// The names of one kind, without inputs that an output is connected to.
std::vector<std::string> names_in(const Json& description, NameKind kind,
                                  const std::string& block_name) {
    std::vector<std::string> names;
    for (const Json& block : description.at("blocks")) {
        const auto name = block.at("name").get<std::string>();
        switch (kind) {
            case NameKind::ports:
                add_ports(block, "outputs", names);
                [[fallthrough]];
            case NameKind::inputs:
                add_ports(block, "inputs", names);
                add_ports(block, "terminated_inputs", names);
                break;
            case NameKind::blocks:
                names.push_back(name);
                break;
            case NameKind::settings:
                if (name != block_name)
                    break;
                for (const auto& [key, value] : block.at("settings").items())
                    names.push_back(key);
                break;
        }
    }
    if (kind == NameKind::inputs) {
        std::set<std::string> connected;
        for (const Json& connection : description.at("connections"))
            connected.insert(connection.at("to").get<std::string>());
        std::erase_if(names, [&](const std::string& name) { return connected.count(name) != 0; });
    }
    return names;
}

/// Prints names out of a running host on stdout, one a line, for shell completion.
/// @param block whose settings are meant, with `NameKind::settings`.
/// @throws common::Failure as ControlClient does.
common::ExitCode print_names(const ControlTarget& target, NameKind kind, const std::string& block) {
    open_closed_streams();
    const std::vector<std::string> names = ControlClient(target).with_description(
        [&](const Json& description) { return names_in(description, kind, block); });
    StandardOutput out([] {});
    for (const std::string& name : names) {
        // One that is not safe in a line cannot be typed either.
        if (common::one_line(name) == name)
            out.write(name + '\n');
    }
    return code_after(out, common::ExitCode::done);
}

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
