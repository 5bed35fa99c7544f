#include "host/set_command.hpp"

#include <set>

#include "common/bus.hpp"
#include "common/exit_code.hpp"
#include "common/toml_document.hpp"
#include "host/graph_reader.hpp"

namespace host {
namespace {

using tool::ExitCode;
using tool::Failure;

using Value = Fenwa::BlockConfiguration::Value;

/// The text as a graph file's value, or else as the string that it is.
Value read_value(const std::string& key, const std::string& text) {
    tool::Diagnostics diagnostics(key);
    // Behind the end of the line further keys could follow.
    const bool is_one_line = text.find_first_of("\r\n") == std::string::npos;
    const auto table =
        is_one_line ? tool::parse_toml("value = " + text, diagnostics) : std::nullopt;
    if (!table)
        return text;
    tool::Diagnostics refusal(key);
    const auto value = read_setting(key, *table->get("value"), refusal);
    if (!value)
        throw Failure(ExitCode::usage, refusal.error_sentences().front());
    return *value;
}

}  // namespace

Fenwa::BlockConfiguration::KeyValue parse_change(const std::string& text) {
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0)
        throw Failure(ExitCode::usage, "'" + text + "' is not of the form KEY=VALUE");
    const std::string key = text.substr(0, sign);
    return {key, read_value(key, text.substr(sign + 1))};
}

void set_block_of_host(const SetOptions& options) {
    SettingList changes;
    std::set<std::string> keys;
    for (const std::string& text : options.changes) {
        changes.push_back(parse_change(text));
        if (!keys.insert(changes.back().key()).second)
            throw Failure(ExitCode::usage, "'" + changes.back().key() + "' is given twice");
    }
    const ControlClient host(options.target);
    const tool::MessagePtr call = host.new_call("Reconfigure");
    ControlClient::append(*call, options.block);
    ControlClient::append(*call, changes);
    (void)host.send(call);
}

}  // namespace host
