#include "host/control/reconfigurer.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <system_error>

#include "common/events/message.hpp"
#include "common/process/exit_code.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"
#include "host/check/graph_check.hpp"
#include "host/check/settings_text.hpp"
#include "host/control/names.hpp"
#include "host/control/port_access.hpp"
#include "host/graph/diff.hpp"

namespace host {
namespace {

using common::Diagnostics;
using common::Json;
using Fenwa::BlockConfiguration;
using Fenwa::ConfigurationAccess;

/// The settings of a block that cannot be built without a bus: those that it was built with, with
/// its entry's merged into them. The default of a key that it was given then is unknown.
BlockConfiguration merge_settings(const RunningGraph& graph, const BlockEntry& entry,
                                  Diagnostics& diagnostics) {
    const BlockInstance& instance = *graph.find(entry.name);
    for (const auto& given : ConfigurationAccess::entries(instance.built_from())) {
        if (entry.find(given.key()) == nullptr)
            diagnostics.error(
                entry.location,
                fmt::format("{} cannot be built without a bus, so the default of '{}' "
                            "is unknown; removing the key needs a restart",
                            display_name(entry), given.key()));
    }
    return instance.built_with() + entry.configuration();
}

/// The complete settings of a probed block, and the keys that it does not read.
Json look_at(const Probe& probed) {
    Json unread = Json::array();
    for (const UnreadKey& key : probed.unread_keys())
        unread.push_back(Json::array({key.key, key.help}));
    return {{"settings", settings_to_text(Fenwa::HostAccess::configuration(*probed.block().block))},
            {"unread", std::move(unread)}};
}

/// Refuses a file whose reading could block, such as a pipe.
void check_regular_file(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_other(path, error) && !error)
        throw common::Failure(common::ExitCode::unreadable,
                              fmt::format("cannot read '{}': not a regular file", path));
}

std::vector<std::string> quoted(std::vector<std::string> names) {
    for (std::string& name : names)
        name = fmt::format("'{}'", name);
    return names;
}

/// "'a', 'b' and 3 more".
std::string list_names(const std::vector<std::string>& names) {
    constexpr std::size_t max_names = 8;
    std::string list;
    for (std::size_t i = 0; i < std::min(names.size(), max_names); ++i)
        list += (i == 0 ? "" : ", ") + names[i];
    if (names.size() > max_names)
        list += fmt::format(" and {} more", names.size() - max_names);
    return list;
}

}  // namespace

Reconfigurer::Reconfigurer(std::string path, RunningGraph& graph, BlockTypes& types)
    : path_(std::move(path)), graph_(graph), types_(types) {}

void Reconfigurer::reload(bool color) noexcept {
    const auto say = [this](const std::string& sentence) {
        common::print_message(common::Severity::info, fmt::format("{}: {}", path_, sentence));
    };
    const auto say_refused = [this] {
        common::print_message(common::Severity::error,
                              fmt::format("{}: not reloaded; the graph goes on as it was", path_));
    };
    try {
        Diagnostics diagnostics(path_);
        try {
            const auto changed = reload_from(diagnostics);
            diagnostics.print(std::cerr, color);
            if (!changed)
                say_refused();
            else if (changed->empty())
                say("reloaded; no settings have changed");
            else
                say("reloaded; new settings for " + list_names(*changed));
        } catch (const Fenwa::ConfigurationError&) {
            diagnostics.print(std::cerr, color);
            say_refused();
        }
    } catch (const common::Failure& failure) {
        common::print_message(common::Severity::error, failure.what());
        say_refused();
    } catch (const std::system_error& error) {
        say(std::string("the settings cannot be checked: ") + error.what());
        say_refused();
    } catch (...) {
        graph_.fail(std::current_exception());
    }
}

std::optional<std::vector<std::string>> Reconfigurer::reload_from(Diagnostics& diagnostics) {
    check_regular_file(path_);
    std::optional<Graph> next = read_graph(path_, diagnostics);
    // Comparing a graph without blocks would report each block as removed.
    if (!next || next->blocks.empty())
        return std::nullopt;
    const std::vector<std::string> changed = compare_graphs(graph_.graph(), *next, diagnostics);
    const std::set<std::string> is_changed(changed.begin(), changed.end());
    std::vector<const BlockEntry*> entries;
    for (const BlockEntry& entry : next->blocks) {
        if (is_changed.count(entry.name) != 0)
            entries.push_back(&entry);
    }
    const Complete after = complete(entries, diagnostics);
    if (diagnostics.errors() != 0)
        return std::nullopt;
    Settings settings;
    for (const auto& [name, block] : after)
        settings.emplace(name, block.configuration);
    std::vector<std::string> names = quoted(changed);
    if (next->rate_limit != graph_.graph().rate_limit)
        names.insert(names.begin(), "[host]");
    graph_.reconfigure(std::move(*next), settings, diagnostics);
    return names;
}

Reconfigurer::Complete Reconfigurer::complete(const std::vector<const BlockEntry*>& entries,
                                              Diagnostics& diagnostics) const {
    ProbeJob before{types_, {}, {}, {}, Strictness::before_a_run};
    for (const BlockEntry* entry : entries)
        before.blocks.push_back(graph_.graph().find(entry->name));
    Diagnostics discarded(path_);
    const ProbeResult as_they_are = probe(before, discarded);
    Complete complete;
    ProbeJob after{types_, {}, {}, {}, Strictness::in_a_run, look_at};
    for (const BlockEntry* entry : entries) {
        if (as_they_are.blocks.at(entry->name).ports.complete)
            after.blocks.push_back(entry);
        else  // A block that needs a bus to be constructed cannot be checked here.
            complete[entry->name].configuration = merge_settings(graph_, *entry, diagnostics);
    }
    const ProbeResult as_they_will_be = probe(after, diagnostics);
    for (const BlockEntry* entry : after.blocks) {
        const common::SharedJson look = as_they_will_be.blocks.at(entry->name).look;
        if (look == nullptr)
            continue;  // reported
        const Json& seen = *look;
        CompleteBlock& block = complete[entry->name];
        block.configuration = settings_from_text(seen.at("settings"));
        for (const Json& key : seen.at("unread"))
            block.unread.push_back({key.at(0), entry->location, key.at(1)});
    }
    return complete;
}

void Reconfigurer::change(const std::string& block, const SettingList& changes) {
    Graph next = graph_.graph();
    BlockEntry* const entry = next.find(block);
    if (entry == nullptr)
        refuse_unknown_block(next, block);
    for (const auto& change : changes)
        entry->set(change.key(), change.value());
    Diagnostics diagnostics(path_);
    graph_.show_source_in(diagnostics);
    CompleteBlock after;
    try {
        after = complete({entry}, diagnostics)[block];
    } catch (const std::system_error& error) {
        throw ControlError(wrong_setting_error,
                           std::string("the settings cannot be checked: ") + error.what());
    }
    for (const UnreadKey& unread : after.unread) {
        const bool is_asked_for =
            std::any_of(changes.begin(), changes.end(),
                        [&](const auto& change) { return change.key() == unread.key; });
        if (is_asked_for)
            throw ControlError(unknown_key_error, describe_unread_key(unread, *entry), unread.help);
    }
    if (diagnostics.errors() != 0)
        throw ControlError(wrong_setting_error, diagnostics.error_sentences().front());
    if (same_settings(*graph_.graph().find(block), *entry))
        return;
    try {
        graph_.reconfigure(std::move(next), {{block, after.configuration}}, diagnostics);
    } catch (const Fenwa::ConfigurationError&) {
        throw ControlError(wrong_setting_error, diagnostics.error_sentences().front());
    } catch (const BlockFailure& failure) {
        graph_.fail(std::current_exception());
        throw ControlError(block_threw_error, failure.what());
    }
    common::print_message(common::Severity::info,
                          fmt::format("new settings for '{}', set over the bus", block), block);
}

}  // namespace host
