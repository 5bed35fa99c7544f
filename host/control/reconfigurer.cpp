#include "host/control/reconfigurer.hpp"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <set>
#include <system_error>

#include "common/process/exit_code.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"
#include "host/check/graph_probe.hpp"
#include "host/check/settings_message.hpp"
#include "host/control/names.hpp"
#include "host/control/port_access.hpp"
#include "host/graph/diff.hpp"
#include "host/graph/reader.hpp"

namespace host {
namespace {

using common::Diagnostics;
using common::Json;
using Fenwa::BlockConfiguration;
using Fenwa::ConfigurationAccess;

/// What a block that cannot be built dry is told: what it was built with, with what is given now
/// laid over it. The default of a key that it was given then is not known.
BlockConfiguration merge_settings(const RunningGraph& graph, const BlockEntry& entry,
                                  Diagnostics& diagnostics) {
    for (const auto& given : ConfigurationAccess::entries(graph.built_from(entry.name))) {
        if (entry.find(given.key()) == nullptr)
            diagnostics.error(entry.location,
                              describe(entry) +
                                  " cannot be built without a bus, so the default of '" +
                                  given.key() + "' is unknown; removing the key needs a restart");
    }
    return graph.built_with(entry.name) + entry.configuration();
}

/// What a block will run with, and what it does not read.
Json look_at(const Probe& dry) {
    Json unread = Json::array();
    for (const UnreadKey& key : dry.unread_keys())
        unread.push_back(Json::array({key.key, key.help}));
    return {{"settings", to_message(Fenwa::HostAccess::configuration(*dry.block().block))},
            {"unread", std::move(unread)}};
}

/// A file that can be read again without waiting for anybody.
void check_regular_file(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_other(path, error) && !error)
        throw common::Failure(common::ExitCode::unreadable,
                              "cannot read '" + path + "': not a regular file");
}

std::vector<std::string> quoted(std::vector<std::string> names) {
    for (std::string& name : names)
        name = "'" + name + "'";
    return names;
}

/// "'a', 'b' and 3 more".
std::string list_names(const std::vector<std::string>& names) {
    constexpr std::size_t longest = 8;
    std::string list;
    for (std::size_t i = 0; i < std::min(names.size(), longest); ++i)
        list += (i == 0 ? "" : ", ") + names[i];
    if (names.size() > longest)
        list += " and " + std::to_string(names.size() - longest) + " more";
    return list;
}

}  // namespace

Reconfigurer::Reconfigurer(std::string path, RunningGraph& graph, BlockTypes& types)
    : path_(std::move(path)), graph_(graph), types_(types) {}

void Reconfigurer::reload(bool color) noexcept {
    const auto say = [this](const std::string& sentence) {
        common::print_error_line("fenwa: " + path_ + ": " + sentence);
    };
    const auto say_refused = [&say] { say("not reloaded; the graph goes on as it was"); };
    try {
        Diagnostics diagnostics(path_);
        try {
            const auto told = reload_from(diagnostics);
            diagnostics.print(std::cerr, color);
            if (!told)
                say_refused();
            else if (told->empty())
                say("reloaded; no settings have changed");
            else
                say("reloaded; new settings for " + list_names(*told));
        } catch (const Fenwa::ConfigurationError&) {
            diagnostics.print(std::cerr, color);
            say_refused();
        }
    } catch (const common::Failure& failure) {
        common::print_error_line(std::string("fenwa: ") + failure.what());
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
    // That a graph without blocks differs in each of them goes without saying.
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
    std::vector<std::string> told = quoted(changed);
    if (next->rate_limit != graph_.graph().rate_limit)
        told.insert(told.begin(), "[host]");
    graph_.reconfigure(std::move(*next), settings, diagnostics);
    return told;
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
        else  // What it has is not enough without a bus, so that nothing is learnt from it.
            complete[entry->name].configuration = merge_settings(graph_, *entry, diagnostics);
    }
    const ProbeResult as_they_will_be = probe(after, diagnostics);
    for (const BlockEntry* entry : after.blocks) {
        const Json& seen = as_they_will_be.blocks.at(entry->name).look;
        if (seen.is_null())
            continue;  // reported
        CompleteBlock& block = complete[entry->name];
        block.configuration = settings_from_message(seen.at("settings"));
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
            throw ControlError(unknown_key_error, describe(unread, *entry), unread.help);
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
    common::print_error_line("fenwa: new settings for '" + block + "', set over the bus");
}

}  // namespace host
