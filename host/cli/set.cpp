#include "host/cli/set.hpp"

#include <algorithm>
#include <set>

#include "common/bus/bus.hpp"
#include "common/process/exit_code.hpp"
#include "common/toml/document.hpp"
#include "host/graph/reader.hpp"

namespace host {
namespace {

using common::ExitCode;
using common::Failure;

using Value = Fenwa::BlockConfiguration::Value;

bool holds_nul(const Value& value) {
    const auto in = [](const std::string& text) { return text.find('\0') != text.npos; };
    if (const auto* const text = std::get_if<std::string>(&value))
        return in(*text);
    const auto* const list = std::get_if<std::vector<std::string>>(&value);
    return list != nullptr && std::any_of(list->begin(), list->end(), in);
}

/// The text as a graph file's value, or else as the string that it is.
Value read_value(const std::string& key, const std::string& text) {
    common::Diagnostics diagnostics(key);
    // Behind the end of the line further keys could follow.
    const bool is_one_line = text.find_first_of("\r\n") == std::string::npos;
    const auto table =
        is_one_line ? common::parse_toml("value = " + text, diagnostics) : std::nullopt;
    if (!table)
        return text;
    common::Diagnostics refusal(key);
    const toml::node& node = *table->get("value");
    // No setting is a date, so that what looks like one is meant as text.
    if (node.is_date() || node.is_time() || node.is_date_time())
        return text;
    const auto value = read_setting(key, node, refusal);
    if (!value)
        throw Failure(ExitCode::usage, refusal.error_sentences().front());
    if (holds_nul(*value))
        throw Failure(ExitCode::usage, "'" + key + "' holds a NUL, which D-Bus does not carry");
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
    const common::MessagePtr call = host.new_call("Reconfigure");
    ControlClient::append(*call, options.block);
    ControlClient::append(*call, changes);
    (void)host.send(call);
}

}  // namespace host
