#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "common/events/message.hpp"
#include "host/runtime/running_graph.hpp"

namespace host {
namespace {

using common::Diagnostics;
using Kind = UpdateResult::Kind;
using Names = std::set<std::string>;
using ConnectionNames = std::vector<std::pair<std::string, std::string>>;

ConnectionNames names_of(const std::vector<Connection>& connections) {
    ConnectionNames names;
    for (const auto& [from, to] : connections)
        names.emplace_back(from.text(), to.text());
    return names;
}

/// Has blocks report their mistakes elsewhere while it lives.
class Redirection {
  public:
    Redirection(GraphContext& context, Diagnostics& diagnostics)
        : context_(context), former_(std::exchange(context.diagnostics, &diagnostics)) {}
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;
    ~Redirection() { context_.diagnostics = former_; }

  private:
    GraphContext& context_;
    Diagnostics* former_;
};

}  // namespace

/// The blocks and connections that an update takes out of a running graph and puts into it.
class RunningGraph::Replacement {
  public:
    Replacement(RunningGraph& graph, const GraphUpdate& change) : graph_(graph), change_(change) {
        Names kept;
        for (const BlockEntry& entry : change.next.blocks) {
            if (graph.find(entry.name) == nullptr || change.rebuilt.count(entry.name) != 0)
                new_.insert(entry.name);
            else
                kept.insert(entry.name);
        }
        for (const BlockEntry& entry : graph.graph_.blocks) {
            if (kept.count(entry.name) == 0)
                old_.insert(entry.name);
        }
    }

    /// Makes all of it or none of it. @throws as RunningGraph::update.
    UpdateResult make(Diagnostics& diagnostics) {
        if (old_.empty() && new_.empty() &&
            names_of(graph_.graph_.connections) == names_of(change_.next.connections))
            return {};
        for (const auto& instance : graph_.instances_) {
            if (old_.count(instance->name()) == 0)
                continue;
            started_.push_back(instance.get());
            written_.emplace(instance->name(), instance->written());
        }
        take_out(old_);
        UpdateResult result{put_in_new(diagnostics), {}};
        if (result.kind != Kind::done) {
            take_out(new_);
            put_back();
            result.built_again.assign(old_.begin(), old_.end());
        }
        return result;
    }

  private:
    /// Stops those that were started, disconnects all blocks of the graph, since no input may read
    /// an output that is gone, and destroys these.
    void take_out(const Names& names) {
        for (; !started_.empty(); started_.pop_back()) {
            const auto say = [&](const std::string& text) {
                common::print_message(common::Severity::error, text, started_.back()->name());
            };
            try {
                started_.back()->stop();
            } catch (const BlockFailure& failure) {
                say(failure.text());
            } catch (const Fenwa::ConfigurationError& error) {
                say(fmt::format("block '{}' threw in stop: {}", started_.back()->name(),
                                error.what()));
            }
        }
        auto& instances = graph_.instances_;
        for (const auto& instance : instances)
            instance->disconnect();
        const auto first = std::stable_partition(
            instances.begin(), instances.end(),
            [&](const auto& instance) { return names.count(instance->name()) == 0; });
        std::vector<std::unique_ptr<BlockInstance>> leaving(
            std::make_move_iterator(first), std::make_move_iterator(instances.end()));
        instances.erase(first, instances.end());
        graph_.stop_below_ = instances.size();
        forget(leaving);
        for (; !leaving.empty(); leaving.pop_back()) {
            const std::string name = leaving.back()->name();
            leaving.back().reset();
            if (graph_.interposer_ != nullptr)
                graph_.interposer_->forget(name);
        }
    }

    void forget(const std::vector<std::unique_ptr<BlockInstance>>& leaving) {
        std::vector<Fenwa::Block*> blocks;
        for (const auto& instance : leaving) {
            blocks.push_back(instance->block());
            graph_.by_name_.erase(instance->name());
        }
        graph_.scheduler_.forget(blocks);
    }

    Kind put_in_new(Diagnostics& diagnostics) {
        const Redirection redirection(graph_.context_, diagnostics);
        try {
            return put_in(change_.next, new_) ? Kind::done : Kind::refused;
        } catch (const Fenwa::ConfigurationError&) {
            return Kind::refused;
        } catch (const BlockFailure& failure) {
            diagnostics.error(failure.location(), failure.text());
            return Kind::threw;
        }
    }

    void put_back() {
        SourceLocation location;
        std::string reason;
        try {
            if (put_in(graph_.graph_, old_))
                return;
        } catch (const Fenwa::ConfigurationError&) {
            // It is in the diagnostics.
        } catch (const BlockFailure& failure) {
            location = failure.location();
            reason = failure.text();
        }
        if (reason.empty())
            reason = graph_.context_.diagnostics->sentences(Diagnostics::Severity::error).back();
        take_out(old_);
        throw BlockFailure(*graph_.context_.diagnostics, location,
                           "the graph cannot be built again as it was: " + reason);
    }

    /// Builds blocks of `graph`, to which all blocks belong then.
    /// @returns false after a mistake in the diagnostics.
    bool put_in(const Graph& graph, const Names& names) {
        const std::size_t known = graph_.context_.diagnostics->errors();
        std::vector<BlockInstance*> added;
        for (const BlockEntry& entry : graph.blocks) {
            if (names.count(entry.name) == 0)
                continue;
            graph_.create(entry);
            added.push_back(graph_.find(entry.name));
        }
        for (BlockInstance* instance : added)
            instance->set_up();
        graph_.check_connections(graph);
        if (graph_.context_.diagnostics->errors() != known)
            return false;
        connect(graph, names, added);
        for (BlockInstance* instance : added) {
            instance->start();
            started_.push_back(instance);
        }
        graph_.stop_below_ = graph_.instances_.size();
        return true;
    }

    void connect(const Graph& graph, const Names& names, const std::vector<BlockInstance*>& added) {
        for (BlockInstance* instance : added) {
            instance->collect_outputs();
            const auto written = written_.find(instance->name());
            if (written != written_.end())
                instance->write_again(written->second);
        }
        const ConnectionNames list = names_of(graph_.graph_.connections);
        const std::set<ConnectionNames::value_type> known(list.begin(), list.end());
        for (const auto& [from, to] : graph.connections) {
            const bool is_new = names.count(from.block) != 0 || names.count(to.block) != 0 ||
                                known.count({from.text(), to.text()}) == 0;
            graph_.find(from.block)->connect(from.port, *graph_.find(to.block), to.port, is_new);
        }
        for (BlockInstance* instance : added)
            instance->deliver();
    }

    RunningGraph& graph_;
    const GraphUpdate& change_;
    Names old_;
    Names new_;
    std::map<std::string, BlockInstance::Written> written_;  ///< to the old blocks, by their names
    std::vector<BlockInstance*> started_;                    ///< to be stopped by `take_out`
};

UpdateResult RunningGraph::update(GraphUpdate change, Diagnostics& diagnostics) {
    std::vector<BlockInstance*> reconfigured;
    UpdateResult result;
    try {
        result.kind = reconfigure(change, reconfigured, diagnostics);
        if (result.kind == Kind::done)
            result = Replacement(*this, change).make(diagnostics);
    } catch (...) {
        take_entries();
        throw;
    }
    if (result.kind != Kind::done) {
        take_entries();
        for (; !reconfigured.empty(); reconfigured.pop_back()) {
            reconfigured.back()->roll_back();
            scheduler_.let_try(*reconfigured.back()->block());
        }
        return result;
    }
    if (change.next.rate_limit != graph_.rate_limit)
        scheduler_.set_rate_limit(change.next.rate_limit);
    graph_ = std::move(change.next);
    take_entries();
    context_.diagnostics->take_source(diagnostics);
    for (BlockInstance* const instance : reconfigured)
        instance->set_settings(change.settings.at(instance->name()));
    return result;
}

Kind RunningGraph::reconfigure(const GraphUpdate& change, std::vector<BlockInstance*>& reconfigured,
                               Diagnostics& diagnostics) {
    try {
        for (const BlockEntry& entry : change.next.blocks) {
            const auto settings = change.settings.find(entry.name);
            if (settings == change.settings.end())
                continue;
            BlockInstance& instance = *reconfigured.emplace_back(find(entry.name));
            instance.refer_to(entry);
            instance.reconfigure(instance.settings(), settings->second, diagnostics);
            scheduler_.let_try(*instance.block());
        }
    } catch (const Fenwa::ConfigurationError&) {
        return Kind::refused;
    }
    return Kind::done;
}

void RunningGraph::take_entries() {
    std::unordered_map<const BlockInstance*, std::size_t> places;
    for (const BlockEntry& entry : graph_.blocks) {
        BlockInstance* const instance = find(entry.name);
        if (instance == nullptr)  // It cannot be built again.
            continue;
        instance->refer_to(entry);
        places.emplace(instance, places.size());
    }
    std::sort(instances_.begin(), instances_.end(), [&](const auto& a, const auto& b) {
        return places.at(a.get()) < places.at(b.get());
    });
}

}  // namespace host
