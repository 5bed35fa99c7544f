#pragma once

#include <systemd/sd-event.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
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
#include "host/runtime/block_calls.hpp"
#include "host/runtime/block_status.hpp"
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

    [[nodiscard]] SourceLocation location() const noexcept { return location_; }
    /// The mistake without the location.
    [[nodiscard]] const std::string& text() const noexcept { return text_; }

  private:
    common::Diagnostics report_;
    SourceLocation location_;
    std::string text_;
};

/// Called for an output that carries a new value, on the thread of the loop; must not throw.
using OutputWatcher =
    std::function<void(const std::string& block, const std::string& port, const PortValue& value)>;

/// Complete configurations of blocks, by the blocks' names.
using Settings = std::map<std::string, Fenwa::BlockConfiguration>;

/// A change of a running graph.
struct GraphUpdate {
    Graph next;                     ///< with the same bus and plug-ins
    Settings settings;              ///< the complete settings of the blocks to be reconfigured
    std::set<std::string> rebuilt;  ///< blocks of both graphs that are destroyed and built anew
};

/// What becomes of an update.
struct UpdateResult {
    enum class Kind {
        done,
        refused,  ///< a mistake, such as a ConfigurationError of a block
        threw     ///< a new block threw something else
    };

    Kind kind = Kind::done;
    std::vector<std::string> built_again;  ///< blocks that were destroyed for an update in vain
};

/// The surroundings of the blocks of a graph. All references outlive the blocks.
struct GraphContext {
    const BlockTypes& types;
    const Fenwa::InitTools& tools;
    sd_event& loop;
    EventWriter& events;
    common::Diagnostics* diagnostics;  ///< takes the mistakes of the real blocks; never null
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

    /// The settings that the block runs with, its own defaults included.
    [[nodiscard]] const Fenwa::BlockConfiguration& settings() const noexcept { return settings_; }
    void set_settings(Fenwa::BlockConfiguration settings) { settings_ = std::move(settings); }
    [[nodiscard]] const BlockStatus& status() const noexcept { return status_; }
    /// The block has logged a line.
    void logged(int level, const std::string& message);

    /// From here on this entry, which has the same name, is the block's.
    void refer_to(const BlockEntry& entry) noexcept { entry_ = &entry; }

    // The phases of the block's life, each @throws BlockFailure, Fenwa::ConfigurationError. Outputs
    // that it publishes are delivered when the call returns or throws.
    void set_up();
    void start();
    /// @param now microseconds of CLOCK_MONOTONIC.
    void run(std::uint64_t now);
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
    /// @param is_new whether the input gets the last value too, if there is one and it is no tick.
    void connect(const std::string& output, BlockInstance& to, const std::string& input,
                 bool is_new);
    /// Removes all connections of its outputs. Its inputs have the values that were written, or
    /// their first ones.
    void disconnect();
    /// Delivers each output that carries a new value.
    /// @returns the last of them, or null.
    const Fenwa::OutPortInternal* deliver() { return has_news() ? deliver_news() : nullptr; }

    /// The value of an input, one that the host provides included: that of the connected output,
    /// and its first value before one came or without a connection. Empty for an unknown name.
    [[nodiscard]] std::optional<PortValue> input_value(const std::string& port) const;
    /// The value of an output; empty for an unknown name.
    [[nodiscard]] std::optional<PortValue> output_value(const std::string& port) const;
    /// Sets an unconnected input, which exists: the block runs if it triggers, as after a delivery.
    /// @param value of the input's datatype, which is a well-known one.
    void write(const std::string& input, const PortValue& value);

    /// The values that were written to unconnected inputs, by the inputs' names.
    using Written = std::map<std::string, PortValue>;
    [[nodiscard]] Written written() const;
    /// Writes these values again, as far as the block has such inputs.
    void write_again(const Written& values);

  private:
    struct Input {
        Fenwa::InPortInternal* port;
        Fenwa::Block* block;  ///< null for a port that the host provides, which runs nothing
    };
    struct Output {
        Fenwa::OutPortInternal* port;
        std::string label;  ///< of the event writer
        ValueReader read;
        std::vector<Input> targets;
        bool has_delivered = false;
    };

    template <class Call>
    void call(const char* phase, Call&& body, common::Diagnostics& diagnostics) const;
    template <class Call>
    void call_and_deliver(const char* phase, Call&& body, common::Diagnostics& diagnostics);
    [[nodiscard]] bool has_news() const {
        for (const Output& output : outputs_) {
            if (output.port->is_triggered())
                return true;
        }
        return false;
    }
    const Fenwa::OutPortInternal* deliver_news();
    void deliver_late();

    const BlockEntry* entry_;
    GraphContext& context_;
    std::string name_;
    Fenwa::BlockConfiguration settings_;
    /// Values of unconnected inputs that were written, where the inputs read them.
    std::unordered_map<Fenwa::InPortInternal*, PortValue> written_;
    std::unique_ptr<Fenwa::Block> block_;
    Terminations terminations_;    ///< none before the setup
    std::vector<Output> outputs_;  ///< empty before `collect_outputs`
    BlockStatus status_;
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

    /// From here on too many unanswered calls hold the blocks back. Reported on stderr are a limit
    /// of the bus that a block reaches, a call that a service refuses, and a service without an
    /// owner.
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

    /// Makes all of a change or none of it, with no run in between: reconfigures blocks; stops and
    /// destroys, in reverse order, the blocks that `next` lacks and those to be rebuilt;
    /// constructs, sets up, connects and starts the new ones in file order; makes and removes
    /// connections. After a mistake the blocks that were reconfigured get their old settings back,
    /// and those that were destroyed are built again. All other blocks go on untouched. If it is
    /// done, `next` becomes `graph()`, and its rate limit applies from here on. What a block throws
    /// in its stop goes to stderr and hinders nothing.
    /// @param diagnostics takes the mistakes.
    /// @throws BlockFailure, after which the blocks are fit for `stop` only, if a block throws
    ///         something other than a ConfigurationError in `reconfigure`, refuses its old settings
    ///         or cannot be built again.
    UpdateResult update(GraphUpdate change, common::Diagnostics& diagnostics);

    /// From here on `watcher` is called for every output that carries a new value, instead of an
    /// earlier one; empty for none.
    void watch_outputs(OutputWatcher watcher) { context_.watcher = std::move(watcher); }

    /// Gives `diagnostics` the lines of the graph file as it was read last.
    void show_source_in(common::Diagnostics& diagnostics) const {
        diagnostics.take_source(*context_.diagnostics);
    }

    /// The graph as it was read last.
    [[nodiscard]] const Graph& graph() const noexcept { return graph_; }
    /// The block of that name, or null.
    [[nodiscard]] BlockInstance* find(const std::string& name) const;

    /// A block has logged a line; a name of no block is ignored.
    void logged(const std::string& block, int level, const std::string& message);
    /// What the blocks and services say to each other; null before `follow_bus`.
    [[nodiscard]] const BlockCalls* calls() const noexcept;
    /// Whether the block has spent its budget of runs and waits for its turns.
    [[nodiscard]] bool is_paced(const BlockInstance& instance) const {
        return scheduler_.is_paced(*instance.block());
    }

    /// Ends the loop with what a block threw outside of `run`.
    void fail(std::exception_ptr failure) noexcept { scheduler_.fail(std::move(failure)); }

    /// Runs the blocks that are ready, as Scheduler::run_ready_blocks.
    bool run_ready_blocks() noexcept { return scheduler_.run_ready_blocks(); }

    /// The exception of a block in `run`, or the argument of `fail`: a BlockFailure or a
    /// ConfigurationError; null for none.
    [[nodiscard]] std::exception_ptr failure() const noexcept { return scheduler_.failure(); }

  private:
    class Replacement;

    void create(const BlockEntry& entry);
    void check_connections(const Graph& graph) const;
    void connect();
    UpdateResult::Kind reconfigure(const GraphUpdate& change,
                                   std::vector<BlockInstance*>& reconfigured,
                                   common::Diagnostics& diagnostics);
    void report_limit(const std::string* block, const std::string& text) const;
    void report_refused(const BlockInstance& instance, const Fenwa::RefusedExport& refused) const;
    /// Has each block refer to its entry in `graph_`, and brings the blocks into the same order.
    void take_entries();

    Graph graph_;
    GraphContext context_;
    Scheduler scheduler_;
    std::vector<std::unique_ptr<BlockInstance>> instances_;
    std::size_t stop_below_ = 0;  ///< the instances before this one are to be stopped
    std::unordered_map<std::string, BlockInstance*> by_name_;
    BusInterposer* interposer_ = nullptr;
};

}  // namespace host
