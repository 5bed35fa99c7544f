#include "host/runtime/running_graph.hpp"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "common/events/message.hpp"
#include "common/events/monotonic_clock.hpp"
#include "common/text/line_text.hpp"
#include "framework/shared/configuration_access.hpp"
#include "host/check/probe.hpp"
#include "host/output/current_block.hpp"
#include "host/runtime/crash_report.hpp"

namespace host {

using Fenwa::BlockConfiguration;
using Fenwa::HostAccess;

BlockFailure::BlockFailure(const common::Diagnostics& file, SourceLocation location,
                           const std::string& text)
    : std::runtime_error(
          fmt::format("{}: error: {}", file.locate(location), common::one_line(text))),
      report_(file.file()),
      location_(location),
      text_(text) {
    report_.take_source(file);
    report_.error(location, text);
}

/// Calls into the block: its log lines carry its name, and an exception gets its location.
template <class Call>
void BlockInstance::call(const char* phase, Call&& body, common::Diagnostics& diagnostics) const {
    const CurrentBlock current(name_, phase);
    try {
        body();
        // In a run, which is frequent, the loop finds out.
        if (std::string_view(phase) != "run")
            end_without_descriptors();
    } catch (const Fenwa::ConfigurationError& error) {
        report(error, *entry_, diagnostics);
        throw;
    } catch (...) {
        throw BlockFailure(diagnostics, entry_->location,
                           fmt::format("{} threw in {}: {}", display_name(*entry_), phase,
                                       message_of(std::current_exception())));
    }
}

template <class Call>
void BlockInstance::call_and_deliver(const char* phase, Call&& body,
                                     common::Diagnostics& diagnostics) {
    deliver_late();
    try {
        call(phase, std::forward<Call>(body), diagnostics);
    } catch (...) {
        deliver();
        throw;
    }
    deliver();
}

BlockInstance::BlockInstance(const BlockEntry& entry, GraphContext& context)
    : entry_(&entry), context_(context), name_(entry.name) {
    const auto construct = [&] {
        const Fenwa::BlockFactory* const factory = context.types.find(entry, *context.diagnostics);
        block_ = (*factory)(name_, entry.configuration(), context.tools);
        if (block_ == nullptr)
            throw std::runtime_error("its factory returned no block");
    };
    call("its constructor", construct, *context.diagnostics);
    settings_ = HostAccess::configuration(*block_);
}

BlockInstance::~BlockInstance() {
    const CurrentBlock current(name_, "its destructor");
    block_.reset();
    end_without_descriptors();
}

void BlockInstance::set_up() {
    BlockConfiguration returned;
    call(
        "setup", [&] { returned = block_->setup(settings_); }, *context_.diagnostics);
    if (!Fenwa::ConfigurationAccess::entries(returned).empty())
        context_.events.setup(name_, returned);
    terminations_ = Terminations(returned, *block_, *entry_, *context_.diagnostics);
}

void BlockInstance::start() {
    call_and_deliver(
        "start", [this] { block_->start(); }, *context_.diagnostics);
}

void BlockInstance::run(std::uint64_t now) {
    Fenwa::ReadyQueue::about_to_run(*block_);
    if (!HostAccess::arm(*block_))
        return;
    status_.ran(now);
    const auto run_armed = [this] {
        block_->run();
        HostAccess::disarm(*block_);
    };
    call_and_deliver("run", run_armed, *context_.diagnostics);
}

void BlockInstance::logged(int level, const std::string& message) {
    status_.logged({level, message, common::monotonic_now()});
}

void BlockInstance::stop() {
    call_and_deliver(
        "stop", [this] { block_->stop(); }, *context_.diagnostics);
}

void BlockInstance::reconfigure(const BlockConfiguration& before, const BlockConfiguration& after,
                                common::Diagnostics& diagnostics) {
    const auto reconfigure_twice = [&] {
        block_->reconfigure(before, after);
        block_->reconfigure(after, after);
    };
    call_and_deliver("reconfigure", reconfigure_twice, diagnostics);
}

void BlockInstance::roll_back() {
    common::Diagnostics discarded(context_.diagnostics->file());
    discarded.take_source(*context_.diagnostics);
    try {
        // As both arguments: a block that looks at the first one would refuse the new one again.
        reconfigure(settings_, settings_, discarded);
    } catch (const Fenwa::ConfigurationError& error) {
        // The block has neither the new settings nor the old ones.
        throw BlockFailure(*context_.diagnostics, entry_->location,
                           fmt::format("{} refuses its previous settings: {}",
                                       display_name(*entry_), error.what()));
    }
}

void BlockInstance::collect_outputs() {
    for (Fenwa::OutPortInternal* port : HostAccess::outports(*block_))
        outputs_.push_back({port,
                            context_.events.output_label(name_, port->name(), port->datatype()),
                            value_reader(port->datatype()),
                            {}});
}

void BlockInstance::connect(const std::string& output, BlockInstance& to, const std::string& input,
                            bool is_new) {
    Fenwa::InPortInternal* const port = to.ports().inport(input);
    const bool provided = to.block_->get_inport(input) == nullptr;
    to.written_.erase(port);
    for (Output& from : outputs_) {
        if (from.port->name() != output)
            continue;
        from.targets.push_back({port, provided ? nullptr : to.block()});
        // An input that the host provides reads its own first value before the first delivery.
        if (!provided || from.has_delivered)
            HostAccess::connect(*port, HostAccess::value_address(*from.port));
        const bool is_tick =
            from.port->datatype() == Fenwa::datatype_of<Fenwa::datatype_timersource>();
        if (is_new && from.has_delivered && !provided && !is_tick)
            HostAccess::notify(*port, *to.block_);
    }
}

void BlockInstance::disconnect() {
    for (Output& output : outputs_)
        output.targets.clear();
    for (Fenwa::InPortInternal* port : HostAccess::inports(*block_))
        HostAccess::connect(*port, nullptr);
    terminations_.disconnect();
    for (auto& [port, value] : written_)
        HostAccess::connect(*port, address_of(value));
}

const Fenwa::OutPortInternal* BlockInstance::deliver_news() {
    const Fenwa::OutPortInternal* delivered = nullptr;
    for (Output& output : outputs_) {
        if (!output.port->is_triggered())
            continue;
        output.port->reset(true);
        output.has_delivered = true;
        status_.published();
        delivered = output.port;
        const void* const address = HostAccess::value_address(*output.port);
        if (!output.label.empty() || context_.watcher) {
            const PortValue value = output.read(address);
            if (!output.label.empty())
                context_.events.output(output.label, output.port->datatype(), value);
            if (context_.watcher)
                context_.watcher(name_, output.port->name(), value);
        }
        for (const Input& target : output.targets) {
            if (target.block != nullptr)
                HostAccess::notify(*target.port, *target.block);
            else
                HostAccess::connect(*target.port, address);
        }
    }
    return delivered;
}

/// Delivers, before a call into the block, what it has published outside of one, and reports the
/// first time.
void BlockInstance::deliver_late() {
    const Fenwa::OutPortInternal* const port = deliver();
    if (port == nullptr || std::exchange(reported_late_, true))
        return;
    common::print_message(
        common::Severity::warning,
        fmt::format("{} published '{}' outside of the framework's calls, such as in an sd-bus "
                    "callback: the last value was delivered late, earlier ones are lost",
                    display_name(*entry_), port->name()),
        entry_->name);
}

std::optional<PortValue> BlockInstance::input_value(const std::string& port) const {
    const Fenwa::InPortInternal* const input = ports().inport(port);
    if (input == nullptr)
        return std::nullopt;
    const void* const source = HostAccess::source(*input);
    return source == nullptr ? default_value(input->datatype())
                             : value_at(input->datatype(), source);
}

std::optional<PortValue> BlockInstance::output_value(const std::string& port) const {
    const Fenwa::OutPortInternal* const output = block_->get_outport(port);
    if (output == nullptr)
        return std::nullopt;
    return value_at(output->datatype(), HostAccess::value_address(*output));
}

void BlockInstance::write(const std::string& input, const PortValue& value) {
    Fenwa::InPortInternal& port = *ports().inport(input);
    PortValue& written = written_[&port];
    written = value;
    HostAccess::connect(port, address_of(written));
    if (block_->get_inport(input) != nullptr)
        HostAccess::notify(port, *block_);
}

BlockInstance::Written BlockInstance::written() const {
    Written values;
    for (const auto& [port, value] : written_)
        values.emplace(port->name(), value);
    return values;
}

void BlockInstance::write_again(const Written& values) {
    for (const auto& [input, value] : values) {
        const Fenwa::InPortInternal* const port = ports().inport(input);
        if (port != nullptr && default_value(port->datatype()).index() == value.index())
            write(input, value);
    }
}

RunningGraph::RunningGraph(Graph graph, const BlockTypes& types, const Fenwa::InitTools& tools,
                           sd_event& loop, EventWriter& events, common::Diagnostics& diagnostics)
    : graph_(std::move(graph)),
      context_{types, tools, loop, events, &diagnostics, {}},
      scheduler_(loop, graph_.rate_limit, [](Fenwa::Block& block, std::uint64_t now) {
          static_cast<BlockInstance*>(HostAccess::host_data(block))->run(now);
      }) {}

RunningGraph::~RunningGraph() {
    stop([](const std::exception_ptr&) {});
    if (interposer_ != nullptr) {
        interposer_->on_answer({});
        interposer_->on_limit({});
        interposer_->on_match({});
        interposer_->block_calls().on_news({});
    }
}

void RunningGraph::follow_bus(BusInterposer& interposer) {
    interposer_ = &interposer;
    scheduler_.hold_for_answers([&interposer] { return interposer.unanswered(); });
    scheduler_.count_calls([&interposer] { return interposer.calls(); });
    scheduler_.follow_matches([&interposer] { return interposer.matches_requested(); });
    interposer.on_answer([this] { scheduler_.answered(); });
    interposer.on_match([this](const std::string& name, BusInterposer::MatchAnswer answer) {
        const BlockInstance* const instance = find(name);
        if (instance == nullptr)
            return;
        if (answer == BusInterposer::MatchAnswer::refused_again)
            scheduler_.match_refused(*instance->block());
        else if (answer == BusInterposer::MatchAnswer::installed)
            scheduler_.match_installed(*instance->block());
    });
    interposer.on_limit(
        [this](const std::string* block, const std::string& text) { report_limit(block, text); });
    interposer.block_calls().on_news(
        [this](common::Severity severity, const std::string& block, const std::string& news) {
            if (const BlockEntry* const entry = graph_.find(block))
                common::print_message(severity, display_name(*entry) + news, block);
        });
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
    const std::size_t known = context_.diagnostics->errors();
    if (!each_block([&](std::size_t i) { create(graph_.blocks[i]); }) ||
        !each_block([&](std::size_t i) { instances_[i]->set_up(); }))
        return false;
    check_connections(graph_);
    if (context_.diagnostics->errors() != known)
        return false;
    connect();
    if (!each_block([&](std::size_t i) { instances_[i]->start(); }))
        return false;
    scheduler_.enable();
    return true;
}

void RunningGraph::create(const BlockEntry& entry) {
    BlockInstance& instance =
        *instances_.emplace_back(std::make_unique<BlockInstance>(entry, context_));
    Fenwa::Block& block = *instance.block();
    HostAccess::set_host_data(block, &instance);
    by_name_.emplace(entry.name, &instance);
    const auto refused = [this, &instance](const Fenwa::RefusedExport& object) {
        report_refused(instance, object);
    };
    const CurrentBlock current(instance.name(), "the export of its objects");
    for (const auto& object : HostAccess::adopt(block, context_.tools, scheduler_.queue(), refused))
        refused(object);
}

void RunningGraph::report_limit(const std::string* name, const std::string& text) const {
    const BlockEntry* const entry = name == nullptr ? nullptr : graph_.find(*name);
    common::print_message(common::Severity::warning,
                          fmt::format("{} has reached a limit of the bus: {}",
                                      entry == nullptr ? "a block" : display_name(*entry), text),
                          entry == nullptr ? "" : entry->name);
}

void RunningGraph::report_refused(const BlockInstance& instance,
                                  const Fenwa::RefusedExport& refused) const {
    std::string reason = std::strerror(-refused.negative_errno);
    for (const auto& other : instances_) {
        if (refused.negative_errno == -EEXIST && other->block() != nullptr &&
            HostAccess::has_exported(*other->block(), refused.path, refused.interface))
            reason = fmt::format("the block '{}' exports it already", other->name());
    }
    common::print_message(common::Severity::warning,
                          fmt::format("the block '{}' cannot export '{}' at '{}': {}",
                                      instance.name(), refused.interface, refused.path, reason),
                          instance.name());
}

/// Checks the connections to the real blocks: one that needs a bus to be built was not probed.
void RunningGraph::check_connections(const Graph& graph) const {
    PortsByName ports;
    for (const auto& instance : instances_)
        ports.emplace(instance->name(), ports_of(instance->ports()));
    host::check_connections(graph, ports, *context_.diagnostics);
}

void RunningGraph::connect() {
    for (const auto& instance : instances_)
        instance->collect_outputs();
    for (const auto& [from, to] : graph_.connections)
        find(from.block)->connect(from.port, *find(to.block), to.port, true);
    for (const auto& instance : instances_)
        instance->deliver();
}

BlockInstance* RunningGraph::find(const std::string& name) const {
    const auto found = by_name_.find(name);
    return found == by_name_.end() ? nullptr : found->second;
}

void RunningGraph::logged(const std::string& block, int level, const std::string& message) {
    if (BlockInstance* const instance = find(block))
        instance->logged(level, message);
}

const BlockCalls* RunningGraph::calls() const noexcept {
    return interposer_ == nullptr ? nullptr : &interposer_->block_calls();
}

void RunningGraph::stop(const std::function<void(const std::exception_ptr&)>& report) noexcept {
    scheduler_.disable();
    for (; stop_below_ > 0; --stop_below_) {
        try {
            instances_[stop_below_ - 1]->stop();
        } catch (...) {
            report(std::current_exception());
        }
    }
    by_name_.clear();
    while (!instances_.empty())
        instances_.pop_back();
}

}  // namespace host
