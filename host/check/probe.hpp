#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "fenwa/block.hpp"
#include "fenwa/registry.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/ready_queue.hpp"
#include "host/check/key_recorder.hpp"
#include "host/graph/connections.hpp"
#include "host/graph/graph.hpp"
#include "host/graph/terminations.hpp"
#include "host/plugin/block_types.hpp"

namespace host {

/// What a dry block lives on: a bus that is not there, and a queue that nobody empties. Outlives
/// the blocks.
struct DryTools {
    Fenwa::ConnectionTools no_bus{nullptr};
    Fenwa::InitTools tools{&no_bus};
    Fenwa::ReadyQueue queue{[] {}};
};

/// A block that was built on a bus that is not there, and set up.
struct ProbedBlock {
    /// Whatever the block throws is kept in `failure`.
    /// @param config usually under the eyes of a KeyRecorder.
    /// @param on_phase told of each phase before it begins, in case that it never ends.
    ProbedBlock(const Fenwa::BlockFactory& factory, const std::string& name,
                const Fenwa::BlockConfiguration& config, DryTools& tools,
                const std::function<void(const char* phase)>& on_phase = {});

    std::unique_ptr<Fenwa::Block> block;  ///< null when the factory threw, or gave none
    Fenwa::BlockConfiguration settings;   ///< what its setup returned
    std::exception_ptr failure;           ///< null for none
    const char* phase = nullptr;          ///< the last one: "its constructor" or "setup"
};

/// What "what()" says of an exception, for a sentence; others have none.
[[nodiscard]] std::string describe(const std::exception_ptr& exception);

/// Before a run, what a block throws without a bus is left to the real construction; in a run there
/// is none any more.
enum class Strictness { alone, before_a_run, in_a_run };

/// Told how a dry construction goes on, in case that it never ends; each may be empty.
struct DryProgress {
    /// A phase begins. @param exploring whether what happens in it is no mistake of the graph's: a
    ///        running block is not called so.
    std::function<void(const char* phase, bool exploring)> on_phase;
    /// The block is given a value that it has not been configured with: what comes of it is most
    /// likely no mistake of its own.
    std::function<void()> on_invented;
};

/// Builds a block of a graph on a bus that is not there, and says of each mistake where it is:
/// unknown type, missing, mistyped and unread keys, wrong terminations, exceptions.
class Probe {
  public:
    /// All outlive this object.
    Probe(const BlockEntry& entry, const BlockTypes& types, common::Diagnostics& diagnostics,
          Strictness strictness, DryProgress progress = {});
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    /// Builds it and sets it up. @returns whether it is there.
    bool build();

    /// After `build`, of a block that is there: warns of the keys that it reads neither then nor in
    /// `reconfigure`, and has no default for either. A key that a block only reads at times is
    /// known to its own table of defaults. The block is reconfigured, if there is something to be
    /// learnt of it.
    void find_unread_keys();
    /// Those that it has warned of.
    [[nodiscard]] const std::vector<UnreadKey>& unread_keys() const noexcept { return unread_; }

    [[nodiscard]] const BlockEntry& entry() const noexcept { return entry_; }
    /// The block with its terminations, owned by this object; an empty one where it is not there.
    [[nodiscard]] ConnectableBlock block() const;

    /// Whether the block threw something other than a ConfigurationError, and that was reported.
    [[nodiscard]] bool threw() const noexcept { return threw_; }

    /// Destroys the block.
    void destroy();

  private:
    void enter(const char* phase, bool exploring);
    void on_mistake(const Fenwa::ConfigurationError& error);
    void warn(const UnreadKey& unread);
    void report_mistakes(const ProbedBlock& dry);
    void report_throw(const ProbedBlock& dry);

    const BlockEntry& entry_;
    const BlockTypes& types_;
    common::Diagnostics& diagnostics_;
    Strictness strictness_;
    DryProgress progress_;
    const Fenwa::BlockFactory* factory_ = nullptr;
    std::shared_ptr<KeyRecorder> recorder_;
    bool exploring_ = false;
    bool threw_ = false;
    std::vector<UnreadKey> unread_;
    DryTools tools_;
    std::unique_ptr<Fenwa::Block> block_;
    Terminations terminations_;
};

/// Reports a ConfigurationError of a block at its key, or at the block where the key is missing.
void report(const Fenwa::ConfigurationError& error, const BlockEntry& entry,
            common::Diagnostics& diagnostics);

}  // namespace host
