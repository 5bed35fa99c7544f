#pragma once

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
#include "host/graph/connections.hpp"
#include "host/graph/graph.hpp"
#include "host/graph/terminations.hpp"
#include "host/output/event_writer.hpp"
#include "host/plugin/block_types.hpp"
#include "host/runtime/bus_interposer.hpp"
#include "host/runtime/scheduler.hpp"
#include "host/value/port_value.hpp"

namespace host {

/// A block threw something that is no ConfigurationError. `what()` names the place in the graph
/// file, the block, its type, the phase, and what it threw.
class BlockFailure : public std::runtime_error {
  public:
    /// @param text what is wrong with the block; the diagnostics say in which file it stands.
    BlockFailure(const common::Diagnostics& file, SourceLocation location, const std::string& text);

    /// The same with the line of the file, to be printed.
    [[nodiscard]] common::Diagnostics& report() noexcept { return report_; }

  private:
    common::Diagnostics report_;
};

/// Told of an output that carries a new value, on the thread of the loop; must not throw.
using OutputWatcher =
    std::function<void(const std::string& block, const std::string& port, const PortValue& value)>;

/// Complete configurations of blocks, by the blocks' names.
using Settings = std::map<std::string, Fenwa::BlockConfiguration>;

/// The blocks of a graph from their construction to their destruction, and the values between
/// them. All on the thread of the loop.
class RunningGraph {
  public:
    /// @param diagnostics takes the mistakes that only show when the real blocks are there.
    RunningGraph(Graph graph, const BlockTypes& types, const Fenwa::InitTools& tools,
                 sd_event& loop, EventWriter& events, common::Diagnostics& diagnostics);
    RunningGraph(const RunningGraph&) = delete;
    RunningGraph& operator=(const RunningGraph&) = delete;
    /// Stops and destroys, in reverse order, what still is there.
    ~RunningGraph();

    /// From here on too many unanswered calls hold the blocks back, a limit of the bus that is hit
    /// makes a line of the host's, and `services` knows something.
    /// @param tap of the blocks' connection; outlives this object.
    void follow_bus(BusInterposer& interposer);

    /// Creates all blocks in file order, sets them up, connects and starts them. The start is whole
    /// or not at all: after an exception `stop` stops those before the block that threw.
    /// @param interrupted asked between two calls into blocks; with true the start ends.
    /// @returns false when it was interrupted, or when a mistake was added to the diagnostics.
    /// @throws BlockFailure
    bool start(const std::function<bool()>& interrupted);

    /// Stops the blocks in reverse order and destroys them in reverse order. A block that throws in
    /// its stop is handed to `report`, as from `failure`, and does not keep the others from
    /// stopping.
    void stop(const std::function<void(const std::exception_ptr&)>& report) noexcept;

    /// The value that an input holds now, one of the block's own or one that the host provides for
    /// it: the value of the output that it is connected to, and before one came, or where nothing
    /// is connected, its first value. Empty where there is no such input.
    [[nodiscard]] std::optional<PortValue> input_value(const std::string& block,
                                                       const std::string& port) const;

    /// The value that an output holds now; empty where there is no such output.
    [[nodiscard]] std::optional<PortValue> output_value(const std::string& block,
                                                        const std::string& port) const;

    /// Gives blocks new settings: each is told them twice, `reconfigure(old, new)` and then
    /// `reconfigure(new, new)`, with no run in between, so that a block that looks at its first
    /// argument and one that looks at its second end up alike. Where one refuses with a
    /// ConfigurationError, it and those told before it are told their old settings again, as
    /// both arguments.
    /// @param next the same blocks and connections, with the settings as they now stand in the
    ///        file or were asked for; becomes `graph()`, and its pace holds from here on.
    /// @param changed what the blocks to be told run with from here on.
    /// @param diagnostics takes the refusal.
    /// @throws Fenwa::ConfigurationError after a refusal; BlockFailure, after which the blocks are
    ///         fit for `stop` only.
    void reconfigure(Graph next, const Settings& changed, common::Diagnostics& diagnostics);

    /// What a block runs with, its own defaults included.
    [[nodiscard]] const Fenwa::BlockConfiguration& settings(const std::string& block) const;
    /// What a block was built with, its own defaults included: those of the keys that `built_from`
    /// does not have.
    [[nodiscard]] const Fenwa::BlockConfiguration& built_with(const std::string& block) const;
    /// The settings that the block was given when it was built.
    [[nodiscard]] const Fenwa::BlockConfiguration& built_from(const std::string& block) const;

    /// Keeps `value` for an input that nothing is connected to: from here on it reads it, and the
    /// block runs if the port triggers, as after a delivery.
    /// @param value of the input's datatype, which is a well-known one.
    void write(const Endpoint& input, const PortValue& value);

    /// Has every output that carries a new value told to `watcher`, too, instead of to one before;
    /// an empty one for nobody.
    void watch_outputs(OutputWatcher watcher) { watcher_ = std::move(watcher); }

    /// Has mistakes that are found in the graph as it was read last shown with its lines.
    void show_source_in(common::Diagnostics& diagnostics) const {
        diagnostics.take_source(diagnostics_);
    }

    /// The graph as it was read last; its blocks are those that `block` finds.
    [[nodiscard]] const Graph& graph() const noexcept { return graph_; }
    /// The block of that name; a null pointer in it where none is there.
    [[nodiscard]] ConnectableBlock block(const std::string& name) const;

    /// The bus names of the services that a block has talked to or listens to, in the order of the
    /// first time.
    [[nodiscard]] std::vector<std::string> services(const std::string& block) const;

    /// Ends the loop with what a block threw outside of `run`.
    void fail(std::exception_ptr failure) noexcept { scheduler_.fail(std::move(failure)); }

    /// What a block threw in `run`, or what `fail` was given, as a BlockFailure or a
    /// ConfigurationError; null for none.
    [[nodiscard]] std::exception_ptr failure() const noexcept { return scheduler_.failure(); }

  private:
    struct Input {
        Fenwa::InPortInternal* port;
        Fenwa::Block* block;  ///< null for a port that the host provides, which runs nothing
    };
    struct Output {
        Fenwa::OutPortInternal* port;
        std::vector<Input> targets;
    };
    struct Instance {
        const BlockEntry* entry;  ///< in `graph_`
        std::string name;
        Fenwa::BlockConfiguration built_from;  ///< as they stood in the file then
        Fenwa::BlockConfiguration settings;    ///< complete, as the block was told them last
        /// What was written to unconnected inputs, where they read it.
        std::unordered_map<const Fenwa::InPortInternal*, PortValue> written;
        std::unique_ptr<Fenwa::Block> block;
        Terminations terminations;    ///< none before its setup
        std::vector<Output> outputs;  ///< empty until the blocks are connected
        bool published_late = false;  ///< that has been reported
    };

    void create(const BlockEntry& entry);
    void set_up(Instance& instance);
    [[nodiscard]] BlocksByName blocks_by_name() const;
    void connect(const BlocksByName& blocks);
    void run(Fenwa::Block& block);
    /// Delivers each output that carries a new value. @returns the last of them, or null.
    const Fenwa::OutPortInternal* deliver(Instance& instance);
    /// Delivers, before a call into the block, what it has published outside of one, and reports
    /// the first time.
    void deliver_late(Instance& instance);
    void say_limit(const std::string* block, const std::string& text) const;
    void say_refused(const Instance& instance, const Fenwa::RefusedExport& refused) const;
    /// Has every instance refer to its entry in `graph_`.
    void refer_to_entries();
    void tell(Instance& instance, const Fenwa::BlockConfiguration& before,
              const Fenwa::BlockConfiguration& after, common::Diagnostics& diagnostics);
    void roll_back(Instance& instance);
    template <class Call>
    void call_and_deliver(Instance& instance, const char* phase, Call&& body,
                          common::Diagnostics& diagnostics);
    template <class Call>
    void call(const Instance& instance, const char* phase, Call&& body) {
        call(instance, phase, std::forward<Call>(body), diagnostics_);
    }
    template <class Call>
    void call(const Instance& instance, const char* phase, Call&& body,
              common::Diagnostics& diagnostics);

    Graph graph_;
    const BlockTypes& types_;
    const Fenwa::InitTools& tools_;
    EventWriter& events_;
    common::Diagnostics& diagnostics_;
    Scheduler scheduler_;
    std::vector<std::unique_ptr<Instance>> instances_;
    std::size_t stop_below_ = 0;  ///< the instances before this one are to be stopped
    std::unordered_map<const Fenwa::Block*, Instance*> by_block_;
    std::unordered_map<std::string, Instance*> by_name_;
    OutputWatcher watcher_;
    BusInterposer* interposer_ = nullptr;
};

}  // namespace host
