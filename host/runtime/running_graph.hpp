#pragma once

#include <systemd/sd-event.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "fenwa/block.hpp"
#include "framework/shared/host_access.hpp"
#include "host/graph/graph.hpp"
#include "host/graph/ports.hpp"
#include "host/output/event_writer.hpp"
#include "host/plugin/block_types.hpp"
#include "host/runtime/bus_interposer.hpp"
#include "host/runtime/scheduler.hpp"
#include "host/value/port_value.hpp"

namespace host {

/// A block threw something other than a ConfigurationError. `what()` names the location, the block,
/// its type, the phase, and the exception.
class BlockFailure : public std::runtime_error {
  public:
    /// @param file for the name and the lines of the graph file.
    /// @param text the mistake, without the location.
    BlockFailure(const common::Diagnostics& file, SourceLocation location, const std::string& text);

    /// The failure with the line of the file, to be printed.
    [[nodiscard]] common::Diagnostics& report() noexcept { return report_; }

  private:
    common::Diagnostics report_;
};

/// Called for an output that carries a new value, on the thread of the loop; must not throw.
using OutputWatcher =
    std::function<void(const std::string& block, const std::string& port, const PortValue& value)>;

/// Complete configurations of blocks, by the blocks' names.
using Settings = std::map<std::string, Fenwa::BlockConfiguration>;

/// The surroundings of the blocks of a graph. All references outlive the blocks.
struct GraphContext {
    const BlockTypes& types;
    const Fenwa::InitTools& tools;
    EventWriter& events;
    common::Diagnostics& diagnostics;  ///< takes the mistakes of the real blocks
    OutputWatcher watcher;             ///< may be empty
};

/// One block at work: every call into it, the delivery of what it publishes, and the values of its
/// ports. Thread of the loop.
class BlockInstance {
  public:
    /// Constructs the block; other phases are calls of their own.
    /// @param entry may be replaced by `refer_to`, and outlives this object or that call.
    /// @param context outlives this object.
    /// @throws BlockFailure, Fenwa::ConfigurationError
    BlockInstance(const BlockEntry& entry, GraphContext& context);
    BlockInstance(const BlockInstance&) = delete;
    BlockInstance& operator=(const BlockInstance&) = delete;
    ~BlockInstance();

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    /// Null while the block is destroyed.
    [[nodiscard]] Fenwa::Block* block() const noexcept { return block_.get(); }
    /// The block with the inputs that the host provides for it.
    [[nodiscard]] ConnectableBlock ports() const noexcept { return {block_.get(), &terminations_}; }

    /// The settings that the block was given when it was built.
    [[nodiscard]] const Fenwa::BlockConfiguration& built_from() const noexcept {
        return built_from_;
    }
    /// `built_from` with the block's own defaults for the other keys.
    [[nodiscard]] const Fenwa::BlockConfiguration& built_with() const;
    /// The settings that the block runs with, its own defaults included.
    [[nodiscard]] const Fenwa::BlockConfiguration& settings() const noexcept { return settings_; }
    void set_settings(Fenwa::BlockConfiguration settings) { settings_ = std::move(settings); }
    /// From here on this entry, which has the same name, is the block's.
    void refer_to(const BlockEntry& entry) noexcept { entry_ = &entry; }

    // The phases of the block's life, each @throws BlockFailure, Fenwa::ConfigurationError. Outputs
    // that it publishes are delivered when the call returns or throws.
    void set_up();
    void start();
    void run();
    void stop();
    /// Calls `reconfigure(before, after)` and then `reconfigure(after, after)`, so that a block
    /// that looks at its first argument and one that looks at its second end up alike.
    /// @param diagnostics takes a ConfigurationError.
    void reconfigure(const Fenwa::BlockConfiguration& before,
                     const Fenwa::BlockConfiguration& after, common::Diagnostics& diagnostics);
    /// Returns to `settings()` after a refusal. @throws BlockFailure also if the block refuses
    /// them.
    void roll_back();

    /// Collects the outputs, after all blocks were set up, because a setup may add ports.
    void collect_outputs();
    /// Connects an output to an input of this or another block; both ports exist.
    void connect(const std::string& output, BlockInstance& to, const std::string& input);
    /// Delivers each output that carries a new value.
    /// @returns the last of them, or null.
    const Fenwa::OutPortInternal* deliver();

    /// The value of an input, one that the host provides included: that of the connected output,
    /// and its first value before one came or without a connection. Empty for an unknown name.
    [[nodiscard]] std::optional<PortValue> input_value(const std::string& port) const;
    /// The value of an output; empty for an unknown name.
    [[nodiscard]] std::optional<PortValue> output_value(const std::string& port) const;
    /// Sets an unconnected input, which exists: the block runs if it triggers, as after a delivery.
    /// @param value of the input's datatype, which is a well-known one.
    void write(const std::string& input, const PortValue& value);

  private:
    struct Input {
        Fenwa::InPortInternal* port;
        Fenwa::Block* block;  ///< null for a port that the host provides, which runs nothing
    };
    struct Output {
        Fenwa::OutPortInternal* port;
        std::vector<Input> targets;
    };

    template <class Call>
    void call(const char* phase, Call&& body, common::Diagnostics& diagnostics) const;
    template <class Call>
    void call_and_deliver(const char* phase, Call&& body, common::Diagnostics& diagnostics);
    void deliver_late();

    const BlockEntry* entry_;
    GraphContext& context_;
    std::string name_;
    Fenwa::BlockConfiguration built_from_;
    Fenwa::BlockConfiguration settings_;
    /// Values of unconnected inputs that were written, where the inputs read them.
    std::unordered_map<const Fenwa::InPortInternal*, PortValue> written_;
    std::unique_ptr<Fenwa::Block> block_;
    Terminations terminations_;    ///< none before the setup
    std::vector<Output> outputs_;  ///< empty before `collect_outputs`
    bool reported_late_ = false;
};

/// The blocks of a graph from their construction to their destruction. Thread of the loop.
class RunningGraph {
  public:
    /// All references outlive this object.
    /// @param diagnostics takes the mistakes that only the real blocks show.
    RunningGraph(Graph graph, const BlockTypes& types, const Fenwa::InitTools& tools,
                 sd_event& loop, EventWriter& events, common::Diagnostics& diagnostics);
    RunningGraph(const RunningGraph&) = delete;
    RunningGraph& operator=(const RunningGraph&) = delete;
    /// Stops and destroys the blocks that still exist, in reverse order.
    ~RunningGraph();

    /// From here on too many unanswered calls hold the blocks back, and a limit of the bus that a
    /// block reaches is reported on stderr.
    /// @param interposer of the blocks' connection; outlives this object.
    void follow_bus(BusInterposer& interposer);

    /// Constructs all blocks in file order, sets them up, connects and starts them. After an
    /// exception `stop` stops only the blocks before the one that threw.
    /// @param interrupted called between two calls into blocks; true ends the start.
    /// @returns false after an interruption, or a mistake in the diagnostics.
    /// @throws BlockFailure, Fenwa::ConfigurationError
    bool start(const std::function<bool()>& interrupted);

    /// Stops the blocks in reverse order and destroys them in reverse order.
    /// @param report gets what a block throws in its stop; the others are stopped all the same.
    void stop(const std::function<void(const std::exception_ptr&)>& report) noexcept;

    /// Gives blocks new settings, with no run in between. After a ConfigurationError that block and
    /// those before it get their old settings back.
    /// @param next the same blocks and connections with other settings; becomes `graph()`, and its
    ///        rate limit applies from here on.
    /// @param changed the new complete settings of the blocks to be reconfigured.
    /// @param diagnostics takes the refusal.
    /// @throws Fenwa::ConfigurationError after a refusal; BlockFailure, after which the blocks are
    ///         fit for `stop` only.
    void reconfigure(Graph next, const Settings& changed, common::Diagnostics& diagnostics);

    /// From here on `watcher` is called for every output that carries a new value, instead of an
    /// earlier one; empty for none.
    void watch_outputs(OutputWatcher watcher) { context_.watcher = std::move(watcher); }

    /// Gives `diagnostics` the lines of the graph file as it was read last.
    void show_source_in(common::Diagnostics& diagnostics) const {
        diagnostics.take_source(context_.diagnostics);
    }

    /// The graph as it was read last.
    [[nodiscard]] const Graph& graph() const noexcept { return graph_; }
    /// The block of that name, or null.
    [[nodiscard]] BlockInstance* find(const std::string& name) const;

    /// The bus names of the services that a block has called or listens to, in the order of the
    /// first time; empty before `follow_bus`.
    [[nodiscard]] std::vector<std::string> services(const std::string& block) const;

    /// Ends the loop with what a block threw outside of `run`.
    void fail(std::exception_ptr failure) noexcept { scheduler_.fail(std::move(failure)); }

    /// The exception of a block in `run`, or the argument of `fail`: a BlockFailure or a
    /// ConfigurationError; null for none.
    [[nodiscard]] std::exception_ptr failure() const noexcept { return scheduler_.failure(); }

  private:
    void create(const BlockEntry& entry);
    void check_connections() const;
    void connect();
    void report_limit(const std::string* block, const std::string& text) const;
    void report_refused(const BlockInstance& instance, const Fenwa::RefusedExport& refused) const;
    void refer_to_entries();

    Graph graph_;
    GraphContext context_;
    Scheduler scheduler_;
    std::vector<std::unique_ptr<BlockInstance>> instances_;
    std::size_t stop_below_ = 0;  ///< the instances before this one are to be stopped
    std::unordered_map<const Fenwa::Block*, BlockInstance*> by_block_;
    std::unordered_map<std::string, BlockInstance*> by_name_;
    BusInterposer* interposer_ = nullptr;
};

}  // namespace host
