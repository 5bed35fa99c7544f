#include "host/runtime/running_graph.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <utility>

#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"
#include "host/check/probe.hpp"
#include "host/output/journal.hpp"

namespace host {

using Fenwa::HostAccess;

BlockFailure::BlockFailure(const common::Diagnostics& file, SourceLocation location,
                           const std::string& text)
    : std::runtime_error(file.locate(location) + ": error: " + common::one_line(text)),
      report_(file.file()) {
    report_.take_source(file);
    report_.error(location, text);
}

RunningGraph::RunningGraph(Graph graph, const BlockTypes& types, const Fenwa::InitTools& tools,
                           sd_event& loop, EventWriter& events, common::Diagnostics& diagnostics)
    : graph_(std::move(graph)),
      types_(types),
      tools_(tools),
      events_(events),
      diagnostics_(diagnostics),
      scheduler_(loop, graph_.rate_limit, [this](Fenwa::Block& block) { run(block); }) {}

RunningGraph::~RunningGraph() {
    stop([](const std::exception_ptr&) {});
    if (interposer_ != nullptr) {
        interposer_->on_answer({});
        interposer_->on_limit({});
        interposer_->on_match({});
    }
}

void RunningGraph::follow_bus(BusInterposer& interposer) {
    interposer_ = &interposer;
    scheduler_.hold_for_answers([&interposer] { return interposer.unanswered(); });
    scheduler_.count_calls([&interposer] { return interposer.calls(); });
    scheduler_.follow_matches([&interposer] { return interposer.matches_asked(); });
    interposer.on_answer([this] { scheduler_.answered(); });
    interposer.on_match([this](const std::string& block, BusInterposer::MatchAnswer answer) {
        const auto found = by_name_.find(block);
        if (found == by_name_.end())
            return;
        if (answer == BusInterposer::MatchAnswer::refused_again)
            scheduler_.match_refused(*found->second->block);
        else if (answer == BusInterposer::MatchAnswer::installed)
            scheduler_.match_installed(*found->second->block);
    });
    interposer.on_limit(
        [this](const std::string* block, const std::string& text) { say_limit(block, text); });
}

/// Calls into a block: its log lines carry its name, and what it throws says where it came from.
template <class Call>
void RunningGraph::call(const Instance& instance, const char* phase, Call&& body,
                        common::Diagnostics& diagnostics) {
    const CurrentBlock current(instance.name, phase);
    try {
        body();
    } catch (const Fenwa::ConfigurationError& error) {
        report(error, *instance.entry, diagnostics);
        throw;
    } catch (...) {
        throw BlockFailure(diagnostics, instance.entry->location,
                           describe(*instance.entry) + " threw in " + phase + ": " +
                               describe(std::current_exception()));
    }
}

/// Calls into a block that may publish. What it has published is delivered also where it throws.
template <class Call>
void RunningGraph::call_and_deliver(Instance& instance, const char* phase, Call&& body,
                                    common::Diagnostics& diagnostics) {
    deliver_late(instance);
    try {
        call(instance, phase, std::forward<Call>(body), diagnostics);
    } catch (...) {
        deliver(instance);
        throw;
    }
    deliver(instance);
}

bool RunningGraph::start(const std::function<bool()>& interrupted) {
    const auto each_block = [&](auto&& step) {
        for (std::size_t i = 0; i < graph_.blocks.size(); ++i) {
            stop_below_ = i;
            if (interrupted())
                return false;
            step(i);
        }
        stop_below_ = graph_.blocks.size();
        return true;
    };
    const std::size_t known = diagnostics_.errors();
    if (!each_block([&](std::size_t i) { create(graph_.blocks[i]); }) ||
        !each_block([&](std::size_t i) { set_up(*instances_[i]); }))
        return false;
    const BlocksByName blocks = blocks_by_name();
    // Once more, with the real blocks: one that needs a bus to be built was not there before.
    PortsByName ports;
    for (const auto& [name, block] : blocks)
        ports.emplace(name, ports_of(block));
    check_connections(graph_, ports, diagnostics_);
    if (diagnostics_.errors() != known)
        return false;
    connect(blocks);
    for (const auto& instance : instances_)
        deliver(*instance);
    const bool whole = each_block([&](std::size_t i) {
        call_and_deliver(
            *instances_[i], "start", [&] { instances_[i]->block->start(); }, diagnostics_);
    });
    if (whole)
        scheduler_.enable();
    return whole;
}

void RunningGraph::create(const BlockEntry& entry) {
    auto instance = std::make_unique<Instance>();
    instance->entry = &entry;
    instance->name = entry.name;
    call(*instance, "its constructor", [&] {
        const Fenwa::BlockFactory* const factory = types_.find(entry, diagnostics_);
        instance->built_from = entry.configuration();
        instance->block = (*factory)(entry.name, instance->built_from, tools_);
        if (instance->block == nullptr)
            throw std::runtime_error("its factory returned no block");
    });
    instance->settings = HostAccess::configuration(*instance->block);
    by_block_.emplace(instance->block.get(), instance.get());
    by_name_.emplace(entry.name, instance.get());
    const Instance& kept = *instances_.emplace_back(std::move(instance));
    const auto say = [this, &kept](const Fenwa::RefusedExport& refused) {
        say_refused(kept, refused);
    };
    for (const auto& refused : HostAccess::adopt(*kept.block, tools_, scheduler_.queue(), say))
        say(refused);
}

void RunningGraph::say_limit(const std::string* name, const std::string& text) const {
    const auto entry = std::find_if(
        graph_.blocks.begin(), graph_.blocks.end(),
        [name](const BlockEntry& block) { return name != nullptr && block.name == *name; });
    const std::string who = entry == graph_.blocks.end() ? "a block" : describe(*entry);
    common::print_error_line("fenwa: " + who + " has reached a limit of the bus: " + text);
}

void RunningGraph::say_refused(const Instance& instance,
                               const Fenwa::RefusedExport& refused) const {
    std::string reason = std::strerror(-refused.negative_errno);
    for (const auto& other : instances_) {
        // While it is destroyed, a block is not there any more.
        if (refused.negative_errno == -EEXIST && other->block != nullptr &&
            HostAccess::has_exported(*other->block, refused.path, refused.interface))
            reason = "the block '" + other->name + "' exports it already";
    }
    common::print_error_line("fenwa: the block '" + instance.name + "' cannot export '" +
                             refused.interface + "' at '" + refused.path + "': " + reason);
}

void RunningGraph::set_up(Instance& instance) {
    Fenwa::BlockConfiguration settings;
    call(instance, "setup", [&] { settings = instance.block->setup(instance.settings); });
    if (!Fenwa::ConfigurationAccess::entries(settings).empty())
        events_.setup(instance.name, settings);
    instance.terminations = Terminations(settings, *instance.block, *instance.entry, diagnostics_);
}

BlocksByName RunningGraph::blocks_by_name() const {
    BlocksByName blocks;
    for (const auto& instance : instances_)
        blocks.emplace(instance->name,
                       ConnectableBlock{instance->block.get(), &instance->terminations});
    return blocks;
}

void RunningGraph::connect(const BlocksByName& blocks) {
    // Now and not before: a setup may add ports.
    for (const auto& instance : instances_) {
        for (Fenwa::OutPortInternal* port : HostAccess::outports(*instance->block))
            instance->outputs.push_back({port, {}});
    }
    for (const Connection& connection : graph_.connections) {
        const ConnectableBlock& to = blocks.at(connection.to.block);
        Instance& from = *by_block_.at(blocks.at(connection.from.block).block);
        Fenwa::InPortInternal* const input = to.inport(connection.to.port);
        const bool provided = to.block->get_inport(connection.to.port) == nullptr;
        for (Output& output : from.outputs) {
            if (output.port->name() != connection.from.port)
                continue;
            output.targets.push_back({input, provided ? nullptr : to.block});
            if (!provided)
                HostAccess::connect(*input, HostAccess::value_address(*output.port));
        }
    }
}

ConnectableBlock RunningGraph::block(const std::string& name) const {
    const auto found = by_name_.find(name);
    if (found == by_name_.end())
        return {};
    return {found->second->block.get(), &found->second->terminations};
}

std::optional<PortValue> RunningGraph::input_value(const std::string& name,
                                                   const std::string& port) const {
    const ConnectableBlock found = block(name);
    const Fenwa::InPortInternal* const input =
        found.block == nullptr ? nullptr : found.inport(port);
    if (input == nullptr)
        return std::nullopt;
    const void* const source = HostAccess::source(*input);
    return source == nullptr ? default_value(input->datatype())
                             : read_value(input->datatype(), source);
}

std::optional<PortValue> RunningGraph::output_value(const std::string& name,
                                                    const std::string& port) const {
    const ConnectableBlock found = block(name);
    const Fenwa::OutPortInternal* const output =
        found.block == nullptr ? nullptr : found.block->get_outport(port);
    if (output == nullptr)
        return std::nullopt;
    return read_value(output->datatype(), HostAccess::value_address(*output));
}

void RunningGraph::reconfigure(Graph next, const Settings& changed,
                               common::Diagnostics& diagnostics) {
    std::vector<Instance*> told;
    try {
        for (const BlockEntry& entry : next.blocks) {
            const auto settings = changed.find(entry.name);
            if (settings == changed.end())
                continue;
            Instance& instance = *by_name_.at(entry.name);
            told.push_back(&instance);
            instance.entry = &entry;
            tell(instance, instance.settings, settings->second, diagnostics);
        }
    } catch (const Fenwa::ConfigurationError&) {
        refer_to_entries();
        for (; !told.empty(); told.pop_back())
            roll_back(*told.back());
        throw;
    } catch (...) {
        refer_to_entries();
        throw;
    }
    if (next.rate_limit != graph_.rate_limit)
        scheduler_.set_rate_limit(next.rate_limit);
    graph_ = std::move(next);
    refer_to_entries();
    diagnostics_.take_source(diagnostics);
    for (Instance* const instance : told)
        instance->settings = changed.at(instance->name);
}

void RunningGraph::refer_to_entries() {
    for (const BlockEntry& entry : graph_.blocks)
        by_name_.at(entry.name)->entry = &entry;
}

void RunningGraph::tell(Instance& instance, const Fenwa::BlockConfiguration& before,
                        const Fenwa::BlockConfiguration& after, common::Diagnostics& diagnostics) {
    call_and_deliver(
        instance, "reconfigure",
        [&] {
            instance.block->reconfigure(before, after);
            instance.block->reconfigure(after, after);
        },
        diagnostics);
    // Other settings may be what it has been waiting for.
    scheduler_.let_try(*instance.block);
}

void RunningGraph::roll_back(Instance& instance) {
    common::Diagnostics discarded(diagnostics_.file());
    show_source_in(discarded);
    try {
        // As both: a block that looks at what was before would refuse that once more.
        tell(instance, instance.settings, instance.settings, discarded);
    } catch (const Fenwa::ConfigurationError& error) {
        // With neither the new settings nor the old ones, nothing is known of it any more.
        throw BlockFailure(
            diagnostics_, instance.entry->location,
            describe(*instance.entry) + " refuses its previous settings: " + error.what());
    }
}

const Fenwa::BlockConfiguration& RunningGraph::built_with(const std::string& block) const {
    return HostAccess::configuration(*by_name_.at(block)->block);
}

const Fenwa::BlockConfiguration& RunningGraph::built_from(const std::string& block) const {
    return by_name_.at(block)->built_from;
}

const Fenwa::BlockConfiguration& RunningGraph::settings(const std::string& block) const {
    return by_name_.at(block)->settings;
}

std::vector<std::string> RunningGraph::services(const std::string& block) const {
    return interposer_ == nullptr ? std::vector<std::string>() : interposer_->services(block);
}

void RunningGraph::write(const Endpoint& input, const PortValue& value) {
    Instance& instance = *by_name_.at(input.block);
    Fenwa::InPortInternal& port = *block(input.block).inport(input.port);
    PortValue& kept = instance.written[&port];
    kept = value;
    HostAccess::connect(port, address_of(kept));
    if (instance.block->get_inport(input.port) != nullptr)
        HostAccess::notify(port, *instance.block);
}

void RunningGraph::run(Fenwa::Block& block) {
    Instance& instance = *by_block_.at(&block);
    Fenwa::ReadyQueue::about_to_run(block);
    if (!HostAccess::arm(block))
        return;
    call_and_deliver(
        instance, "run",
        [&] {
            block.run();
            HostAccess::disarm(block);
        },
        diagnostics_);
}

const Fenwa::OutPortInternal* RunningGraph::deliver(Instance& instance) {
    const Fenwa::OutPortInternal* delivered = nullptr;
    for (Output& output : instance.outputs) {
        if (!output.port->is_triggered())
            continue;
        output.port->reset(true);
        delivered = output.port;
        const void* const value = HostAccess::value_address(*output.port);
        const PortValue held = read_value(output.port->datatype(), value);
        events_.output(instance.name, output.port->name(), output.port->datatype(), held);
        if (watcher_)
            watcher_(instance.name, output.port->name(), held);
        for (const Input& target : output.targets) {
            if (target.block != nullptr)
                HostAccess::notify(*target.port, *target.block);
            else  // Only now, because before the first delivery it reads its own first value.
                HostAccess::connect(*target.port, value);
        }
    }
    return delivered;
}

void RunningGraph::deliver_late(Instance& instance) {
    const Fenwa::OutPortInternal* const port = deliver(instance);
    if (port == nullptr || std::exchange(instance.published_late, true))
        return;
    std::cerr << "fenwa: "
              << common::one_line(
                     describe(*instance.entry) + " published '" + port->name() +
                     "' outside of the framework's calls, such as in an sd-bus "
                     "callback: the last value was delivered late, earlier ones are lost")
              << '\n';
}

void RunningGraph::stop(const std::function<void(const std::exception_ptr&)>& report) noexcept {
    scheduler_.disable();
    for (; stop_below_ > 0; --stop_below_) {
        Instance& instance = *instances_[stop_below_ - 1];
        try {
            call_and_deliver(
                instance, "stop", [&] { instance.block->stop(); }, diagnostics_);
        } catch (...) {
            report(std::current_exception());
        }
    }
    while (!instances_.empty()) {
        const CurrentBlock current(instances_.back()->name, "its destructor");
        instances_.back()->block.reset();
        instances_.pop_back();
    }
    by_block_.clear();
    by_name_.clear();
}

}  // namespace host
