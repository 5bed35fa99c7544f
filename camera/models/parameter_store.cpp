#include "camera/models/parameter_store.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "camera/models/command_error.hpp"
#include "common/text/percent_decoding.hpp"
#include "common/text/suggestion.hpp"

namespace camera {
namespace {

constexpr std::string_view update_path = "/tarlo-cgi/param.cgi";

/// Decodes a part of a query: %XX and "+".
std::string decoded(std::string_view text) {
    std::string plain(text);
    std::ranges::replace(plain, '+', ' ');
    return common::percent_decoded(plain);
}

/// The "KEY=VALUE" parts of a query.
std::vector<ParameterUpdate> parts_of(std::string_view query) {
    std::vector<ParameterUpdate> parts;
    while (!query.empty()) {
        const std::string_view part = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), part.size() + 1));
        const std::size_t equals = part.find('=');
        if (equals == std::string_view::npos)
            throw CommandError(fmt::format("'{}' in the request is not NAME=VALUE", part));
        parts.emplace_back(decoded(part.substr(0, equals)), decoded(part.substr(equals + 1)));
    }
    return parts;
}

/// The parts without "action=update", which must be among them.
std::vector<ParameterUpdate> updates_of(std::string_view query) {
    std::vector<ParameterUpdate> parts = parts_of(query);
    const auto action = std::ranges::find(parts, "action", &ParameterUpdate::first);
    if (action == parts.end())
        throw CommandError("the request needs 'action=update'");
    if (action->second != "update")
        throw CommandError(fmt::format("unknown action '{}': expected 'update'", action->second));
    parts.erase(action);
    if (parts.empty())
        throw CommandError("the request needs a parameter to update");
    return parts;
}

}  // namespace

std::string wdr_parameter(int channel) {
    return fmt::format("ImageSource.I{}.Sensor.WDR", channel);
}

ParameterStore::ParameterStore(int channels) {
    for (int channel = 0; channel < channels; ++channel)
        parameters_.push_back({wdr_parameter(channel), {"on", "off"}, "off"});
}

const Parameter& ParameterStore::by_name(std::string_view name) const {
    const auto it = std::ranges::find(parameters_, name, &Parameter::name);
    if (it != parameters_.end())
        return *it;
    std::vector<std::string> known;
    for (const Parameter& parameter : parameters_)
        known.push_back(parameter.name);
    throw CommandError(fmt::format("unknown parameter '{}'", name),
                       common::did_you_mean(name, known));
}

void ParameterStore::check(std::string_view name, const std::string& value) const {
    const Parameter& parameter = by_name(name);
    if (std::ranges::find(parameter.choices, value) != parameter.choices.end())
        return;
    throw CommandError(fmt::format("'{}' is not a valid value of '{}': expected {}", value,
                                   parameter.name, fmt::join(parameter.choices, " or ")));
}

void ParameterStore::set(std::string_view name, const std::string& value) {
    check(name, value);
    std::ranges::find(parameters_, name, &Parameter::name)->value = value;
}

std::vector<ParameterUpdate> ParameterStore::request(std::string_view type, std::string_view url) {
    if (type != "GET")
        throw CommandError(fmt::format("unsupported request type '{}': expected 'GET'", type));
    const std::string_view path = url.substr(0, url.find('?'));
    if (path != update_path)
        throw CommandError(fmt::format("unknown path '{}': expected '{}'", path, update_path));
    const std::vector<ParameterUpdate> updates =
        updates_of(url.substr(std::min(url.size(), path.size() + 1)));
    for (const auto& [name, value] : updates)
        check(name, value);
    for (const auto& [name, value] : updates)
        set(name, value);
    return updates;
}

}  // namespace camera
