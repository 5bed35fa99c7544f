#include "host/control/reconfigurer.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>
#include <unordered_map>

#include "common/events/message.hpp"
#include "common/process/exit_code.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"
#include "host/check/settings_text.hpp"
#include "host/check/type_checks.hpp"
#include "host/control/names.hpp"
#include "host/control/port_access.hpp"

namespace host {
namespace {

using common::Diagnostics;
using common::Json;
using Fenwa::BlockConfiguration;
using Fenwa::ConfigurationAccess;

/// The findings about a probed block, of which `try_out` makes a TriedBlock.
Json look_at(const Probe& probed) {
    Json unread = Json::array();
    for (const UnreadKey& key : probed.unread_keys())
        unread.push_back(Json::array({key.key, key.help}));
    return {{"settings", settings_to_text(Fenwa::HostAccess::configuration(*probed.block().block))},
            {"read when built", probed.keys_read_when_built()},
            {"live", probed.live_keys() ? Json(*probed.live_keys()) : Json()},
            {"unread", std::move(unread)}};
}

/// Refuses a file whose reading could block, such as a pipe.
void check_regular_file(const std::filesystem::path& file, const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_other(file, error) && !error)
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

/// "reloaded; rebuilt 'a'; new settings for [host], 'b'".
std::string describe_reload(const GraphDiff& diff, const GraphUpdate& change,
                            bool has_new_rate_limit) {
    std::vector<std::string> rebuilt;
    std::vector<std::string> reconfigured;
    for (const BlockEntry& entry : change.next.blocks) {
        if (change.rebuilt.count(entry.name) != 0)
            rebuilt.push_back(entry.name);
        else if (change.settings.count(entry.name) != 0)
            reconfigured.push_back(entry.name);
    }
    reconfigured = quoted(reconfigured);
    if (has_new_rate_limit)
        reconfigured.insert(reconfigured.begin(), "[host]");
    std::string text = "reloaded";
    const auto add = [&text](const char* what, const std::vector<std::string>& names) {
        if (!names.empty())
            text += fmt::format("; {} {}", what, list_names(names));
    };
    add("rebuilt", quoted(rebuilt));
    add("added", quoted(diff.added));
    add("removed", quoted(diff.removed));
    add("connected", diff.connected);
    add("disconnected", diff.disconnected);
    add("new settings for", reconfigured);
    return text == "reloaded" ? "reloaded; no settings have changed" : text;
}

bool changes_structure(const GraphDiff& diff) {
    return !(diff.added.empty() && diff.removed.empty() && diff.connected.empty() &&
             diff.disconnected.empty());
}

bool is_unread(const std::vector<UnreadKey>& unread, const std::string& key) {
    return std::any_of(unread.begin(), unread.end(),
                       [&key](const UnreadKey& each) { return each.key == key; });
}

}  // namespace

Reconfigurer::Reconfigurer(std::string path, std::filesystem::path file, RunningGraph& graph,
                           BlockTypes& types, const TypeCatalog& catalog)
    : path_(std::move(path)),
      file_(std::move(file)),
      graph_(graph),
      types_(types),
      catalog_(catalog) {}

void Reconfigurer::reload(bool color) noexcept {
    std::vector<std::string> built_again;
    const auto say = [this](const std::string& sentence) {
        common::print_message(common::Severity::info, fmt::format("{}: {}", path_, sentence));
    };
    const auto say_refused = [&] {
        const std::string again =
            built_again.empty()
                ? std::string()
                : fmt::format(", with {} built again", list_names(quoted(built_again)));
        common::print_message(
            common::Severity::error,
            fmt::format("{}: not reloaded; the graph goes on as it was{}", path_, again));
    };
    try {
        Diagnostics diagnostics(path_);
        std::optional<std::string> done;
        try {
            done = reload_from(diagnostics, built_again);
        } catch (const BlockFailure&) {
            common::print_diagnostics(diagnostics, color);
            throw;
        }
        common::print_diagnostics(diagnostics, color);
        if (done)
            say(*done);
        else
            say_refused();
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

std::optional<std::string> Reconfigurer::reload_from(Diagnostics& diagnostics,
                                                     std::vector<std::string>& built_again) {
    check_regular_file(file_, path_);
    std::optional<Graph> next = read_graph(file_, diagnostics);
    // Without blocks each running one would count as removed.
    if (!next || next->blocks.empty())
        return std::nullopt;
    const std::size_t known = diagnostics.errors();
    const GraphDiff diff = compare_graphs(graph_.graph(), *next, diagnostics);
    // Blocks of a plug-in that is not loaded would only be unknown types.
    if (diagnostics.errors() != known)
        return std::nullopt;
    std::set<std::string> with_changes(diff.changed.begin(), diff.changed.end());
    with_changes.insert(diff.retyped.begin(), diff.retyped.end());
    with_changes.insert(diff.added.begin(), diff.added.end());
    std::vector<const BlockEntry*> entries;
    for (const BlockEntry& entry : next->blocks) {
        if (with_changes.count(entry.name) != 0)
            entries.push_back(&entry);
    }
    const Trial trial = try_out(entries, diagnostics);
    GraphUpdate change;
    change.rebuilt.insert(diff.retyped.begin(), diff.retyped.end());
    for (const std::string& block : diff.changed) {
        const TriedBlock* const tried = trial.find(block);
        if (tried == nullptr || find_fixed_key(block, *tried))
            change.rebuilt.insert(block);
        else
            change.settings.emplace(block, tried->settings);
    }
    if (!change.rebuilt.empty() || changes_structure(diff))
        check_next(*next, trial.reports, diagnostics);
    if (diagnostics.errors() != 0)
        return std::nullopt;
    check_data(*next, diff, trial, diagnostics);
    change.next = std::move(*next);
    const std::string done =
        describe_reload(diff, change, change.next.rate_limit != graph_.graph().rate_limit);
    UpdateResult result = graph_.update(std::move(change), diagnostics);
    built_again = std::move(result.built_again);
    if (result.kind != UpdateResult::Kind::done)
        return std::nullopt;
    return done;
}

const Reconfigurer::TriedBlock* Reconfigurer::Trial::find(const std::string& block) const {
    const auto found = blocks.find(block);
    return found == blocks.end() ? nullptr : &found->second;
}

Reconfigurer::Trial Reconfigurer::try_out(const std::vector<const BlockEntry*>& entries,
                                          Diagnostics& diagnostics) const {
    std::unordered_map<std::string, const BlockEntry*> running;
    for (const BlockEntry& entry : graph_.graph().blocks)
        running.emplace(entry.name, &entry);
    ProbeJob before{types_, {}, {}, {}, Strictness::before_a_run};
    for (const BlockEntry* entry : entries) {
        const auto found = running.find(entry->name);
        if (found != running.end() && found->second->type.value == entry->type.value)
            before.blocks.push_back(found->second);
    }
    Diagnostics discarded(path_);
    Trial trial{probe(before, discarded).blocks, {}};
    ProbeJob after{types_, {}, {}, {}, Strictness::in_a_run, look_at, true};
    for (const BlockEntry* entry : entries) {
        const auto found = trial.reports.find(entry->name);
        // A block that cannot be built without a bus as it is cannot be checked here.
        if (found == trial.reports.end() || found->second.ports.complete)
            after.blocks.push_back(entry);
    }
    for (auto& [name, report] : probe(after, diagnostics).blocks) {
        if (const common::SharedJson look = report.look) {
            TriedBlock& block = trial.blocks[name];
            block.settings = settings_from_text(look->at("settings"));
            block.read_when_built = look->at("read when built").get<std::set<std::string>>();
            if (const Json& live = look->at("live"); !live.is_null())
                block.live = live.get<std::set<std::string>>();
            for (const Json& key : look->at("unread"))
                block.unread.push_back({key.at(0), {}, key.at(1)});
        }
        trial.reports.insert_or_assign(name, std::move(report));
    }
    return trial;
}

void Reconfigurer::check_next(const Graph& next, const BlockReports& tried,
                              Diagnostics& diagnostics) const {
    BlockReports reports = tried;
    for (const BlockEntry& entry : next.blocks) {
        if (reports.count(entry.name) != 0)
            continue;
        const ConnectableBlock block = graph_.find(entry.name)->ports();
        reports.emplace(
            entry.name,
            BlockReport{ports_of(block), Fenwa::HostAccess::exported_objects(*block.block), {}});
    }
    check_graph(next, reports, diagnostics);
}

void Reconfigurer::check_data(const Graph& next, const GraphDiff& diff, const Trial& trial,
                              Diagnostics& diagnostics) const {
    BlockReports added;
    for (const std::vector<std::string>* names : {&diff.added, &diff.retyped}) {
        for (const std::string& name : *names)
            added.insert(*trial.reports.find(name));
    }
    check_types(next, added, catalog_, diagnostics);
    for (const std::string& name : diff.changed)
        check_settings(*next.find(name), trial.reports.at(name), catalog_, diagnostics);
}

std::optional<std::string> Reconfigurer::find_fixed_key(const std::string& block,
                                                        const TriedBlock& tried) const {
    const BlockConfiguration& now = graph_.find(block)->settings();
    const auto is_fixed = [&](const std::string& key) {
        return (!tried.live || tried.live->count(key) == 0) && !is_unread(tried.unread, key);
    };
    for (const auto& setting : ConfigurationAccess::entries(tried.settings)) {
        const auto* const value = ConfigurationAccess::find(now, setting.key());
        if ((value == nullptr || !same_value(*value, setting.value())) && is_fixed(setting.key()))
            return setting.key();
    }
    // Keys that are removed, and have no default in the block's own settings.
    for (const auto& setting : ConfigurationAccess::entries(now)) {
        if (ConfigurationAccess::find(tried.settings, setting.key()) == nullptr &&
            tried.read_when_built.count(setting.key()) != 0 && is_fixed(setting.key()))
            return setting.key();
    }
    return std::nullopt;
}

std::vector<std::string> Reconfigurer::change(const std::string& block,
                                              const SettingList& changes) {
    return set(block, changes, false);
}

std::vector<std::string> Reconfigurer::rebuild(const std::string& block,
                                               const SettingList& changes) {
    return set(block, changes, true);
}

std::vector<std::string> Reconfigurer::set(const std::string& block, const SettingList& changes,
                                           bool is_rebuilt) {
    GraphUpdate change;
    change.next = graph_.graph();
    BlockEntry* const entry = change.next.find(block);
    if (entry == nullptr)
        refuse_unknown_block(change.next, block);
    for (const auto& setting : changes)
        entry->set(setting.key(), setting.value());
    Diagnostics diagnostics(path_);
    graph_.show_source_in(diagnostics);
    Trial trial;
    try {
        trial = try_out({entry}, diagnostics);
    } catch (const std::system_error& error) {
        throw ControlError(wrong_setting_error,
                           std::string("the settings cannot be checked: ") + error.what());
    }
    const TriedBlock* const tried = trial.find(block);
    for (const UnreadKey& unread : tried == nullptr ? std::vector<UnreadKey>() : tried->unread) {
        const bool is_asked_for =
            std::any_of(changes.begin(), changes.end(),
                        [&](const auto& setting) { return setting.key() == unread.key; });
        if (is_asked_for)
            throw ControlError(unknown_key_error, describe_unread_key(unread, *entry), unread.help);
    }
    if (is_rebuilt)
        check_next(change.next, trial.reports, diagnostics);
    if (diagnostics.errors() != 0)
        throw ControlError(wrong_setting_error,
                           diagnostics.sentences(Diagnostics::Severity::error).front());
    Diagnostics doubts(path_);
    check_settings(*entry, trial.reports.at(block), catalog_, doubts);
    if (is_rebuilt) {
        change.rebuilt.insert(block);
    } else if (same_settings(*graph_.graph().find(block), *entry)) {
        return {};
    } else if (tried == nullptr) {
        throw ControlError(not_live_error,
                           fmt::format("'{}' cannot be built without a bus, so that the host does "
                                       "not know which keys it reads while it runs",
                                       block),
                           "--rebuild builds it anew");
    } else if (const auto key = find_fixed_key(block, *tried)) {
        throw ControlError(
            not_live_error,
            tried->live ? fmt::format("'{}' reads '{}' only when it is built", block, *key)
                        : fmt::format("'{}' crashes or hangs when it is reconfigured", block),
            "--rebuild builds it anew");
    } else {
        change.settings.emplace(block, tried->settings);
    }
    UpdateResult result;
    try {
        result = graph_.update(std::move(change), diagnostics);
    } catch (const BlockFailure& failure) {
        graph_.fail(std::current_exception());
        throw ControlError(block_threw_error, failure.what());
    }
    if (result.kind != UpdateResult::Kind::done) {
        const std::string help = result.built_again.empty() ? "" : "it is built again as it was";
        throw ControlError(
            result.kind == UpdateResult::Kind::threw ? rebuild_failed_error : wrong_setting_error,
            diagnostics.sentences(Diagnostics::Severity::error).front(), help);
    }
    common::print_message(common::Severity::info,
                          is_rebuilt
                              ? fmt::format("rebuilt '{}', asked for over the bus", block)
                              : fmt::format("new settings for '{}', set over the bus", block),
                          block);
    return doubts.sentences(Diagnostics::Severity::warning);
}

}  // namespace host
