#include "host/cli/described_ports.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "common/process/exit_code.hpp"
#include "common/text/glob.hpp"
#include "common/text/line_text.hpp"
#include "common/text/suggestion.hpp"

namespace host {

using common::Json;

std::vector<DescribedPort> ports_in(const Json& description,
                                    const std::vector<std::string>& lists) {
    std::vector<DescribedPort> ports;
    for (const Json& block : description.at("blocks")) {
        for (const std::string& list : lists) {
            for (const Json& port : block.at(list))
                ports.push_back(
                    {block.at("name"), port.at("name"), port.at("type"), &port.at("value")});
        }
    }
    return ports;
}

void check_globs(const std::vector<std::string>& globs, const std::vector<DescribedPort>& ports,
                 const char* kind) {
    for (const std::string& glob : globs) {
        if (std::any_of(ports.begin(), ports.end(), [&glob](const DescribedPort& port) {
                return common::matches(port.name(), glob);
            }))
            continue;
        std::vector<std::string> names;
        for (const DescribedPort& port : ports)
            names.push_back(port.name());
        throw common::Failure(
            common::ExitCode::usage,
            common::with_help(fmt::format("no {} matches {}", kind, common::in_quotes(glob)),
                              common::did_you_mean(glob, names)));
    }
}

}  // namespace host
