#include "host/running_graph.hpp"

#include <cstring>
#include <iostream>

#include "framework/shared/host_access.hpp"
#include "host/graph_checker.hpp"
#include "host/journal.hpp"
#include "host/port_value.hpp"

namespace host {

using Fenwa::HostAccess;

RunningGraph::RunningGraph(const Graph& graph, const BlockTypes& types,
                           const Fenwa::InitTools& tools, sd_event& loop, EventWriter& events,
                           tool::Diagnostics& diagnostics)
    : graph_(graph),
      types_(types),
      tools_(tools),
      events_(events),
      diagnostics_(diagnostics),
      scheduler_(loop, [this](Fenwa::Block& block) { run(block); }) {}

RunningGraph::~RunningGraph() {
    stop([](const std::exception_ptr&) {});
}

/// Calls into a block: its log lines carry its name, and what it throws says where it came from.
template <class Call>
void RunningGraph::call(const Instance& instance, const char* phase, Call&& body) {
    const CurrentBlock current(instance.name);
    const auto fail = [&](const std::string& what) {
        throw BlockFailure(diagnostics_.locate(instance.entry->where) +
                           ": error: " + describe(*instance.entry) + " threw in " + phase + ": " +
                           tool::one_line(what));
    };
    try {
        body();
    } catch (const Fenwa::ConfigurationError& error) {
        report(error, *instance.entry, diagnostics_);
        throw;
    } catch (const std::exception& error) {
        fail(error.what());
    } catch (...) {
        fail("something that is no std::exception");
    }
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
    if (!each_block([&](std::size_t i) { create(graph_.blocks[i]); }) ||
        !each_block([&](std::size_t i) { set_up(*instances_[i]); }) || !connect())
        return false;
    for (const auto& instance : instances_)
        deliver(*instance);
    const bool whole = each_block([&](std::size_t i) {
        call(*instances_[i], "start", [&] { instances_[i]->block->start(); });
        deliver(*instances_[i]);
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
        instance->block = (*factory)(entry.name, entry.configuration(), tools_);
        if (instance->block == nullptr)
            throw std::runtime_error("its factory gave no block");
        report_refused_exports(*instance);
    });
    by_block_.emplace(instance->block.get(), instance.get());
    instances_.push_back(std::move(instance));
}

void RunningGraph::report_refused_exports(const Instance& instance) {
    for (const Fenwa::RefusedExport& refused :
         HostAccess::adopt(*instance.block, tools_, scheduler_.queue())) {
        const std::string other = exporter_of(refused.path, refused.interface);
        std::cerr << "fenwa: the block '" << instance.name << "' cannot export '"
                  << refused.interface << "' at '" << refused.path << "': "
                  << (other.empty() ? std::strerror(-refused.negative_errno)
                                    : "the block '" + other + "' exports it already")
                  << '\n';
    }
}

std::string RunningGraph::exporter_of(const std::string& path, const std::string& interface) const {
    for (const auto& instance : instances_) {
        for (const auto& object : HostAccess::exported_objects(*instance->block)) {
            if (object.first == path && object.second == interface)
                return instance->name;
        }
    }
    return {};
}

void RunningGraph::set_up(Instance& instance) {
    Fenwa::BlockConfiguration settings;
    call(instance, "setup",
         [&] { settings = instance.block->setup(HostAccess::configuration(*instance.block)); });
    if (!to_json(settings).empty())
        events_.setup(instance.name, settings);
}

bool RunningGraph::connect() {
    BlocksByName blocks;
    for (const auto& instance : instances_)
        blocks.emplace(instance->name, instance->block.get());
    // Once more, with the real blocks: one that needs a bus to be built was not there before.
    const std::size_t known = diagnostics_.errors();
    check_connections(graph_, blocks, diagnostics_);
    if (diagnostics_.errors() != known)
        return false;
    // Now and not before: a setup may add ports.
    for (const auto& instance : instances_) {
        for (Fenwa::OutPortInternal* port : HostAccess::outports(*instance->block))
            instance->outputs.push_back({port, {}});
    }
    for (const Connection& connection : graph_.connections) {
        Fenwa::Block& to = *blocks.at(connection.to.block);
        Instance& from = *by_block_.at(blocks.at(connection.from.block));
        Fenwa::InPortInternal* const input = to.get_inport(connection.to.port);
        for (Output& output : from.outputs) {
            if (output.port->name() != connection.from.port)
                continue;
            output.targets.push_back({input, &to});
            HostAccess::connect(*input, HostAccess::value_address(*output.port));
        }
    }
    return true;
}

void RunningGraph::run(Fenwa::Block& block) {
    Instance& instance = *by_block_.at(&block);
    Fenwa::ReadyQueue::about_to_run(block);
    if (!HostAccess::arm(block))
        return;
    call(instance, "run", [&] { block.run(); });
    HostAccess::disarm(block);
    deliver(instance);
}

void RunningGraph::deliver(Instance& instance) {
    for (Output& output : instance.outputs) {
        if (!output.port->is_triggered())
            continue;
        output.port->reset(true);
        events_.output(
            instance.name, output.port->name(), output.port->datatype(),
            read_value(output.port->datatype(), HostAccess::value_address(*output.port)));
        for (const Input& target : output.targets)
            HostAccess::notify(*target.port, *target.block);
    }
}

void RunningGraph::stop(const std::function<void(const std::exception_ptr&)>& report) noexcept {
    scheduler_.disable();
    for (; stop_below_ > 0; --stop_below_) {
        Instance& instance = *instances_[stop_below_ - 1];
        try {
            call(instance, "stop", [&] { instance.block->stop(); });
        } catch (...) {
            report(std::current_exception());
        }
        deliver(instance);
    }
    while (!instances_.empty()) {
        const CurrentBlock current(instances_.back()->name);
        instances_.back()->block.reset();
        instances_.pop_back();
    }
    by_block_.clear();
}

}  // namespace host
