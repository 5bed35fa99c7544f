#pragma once

#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/diagnostics.hpp"
#include "fenwa/block.hpp"
#include "fenwa/registry.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/ready_queue.hpp"
#include "framework/shared/thread_silence.hpp"
#include "host/block_types.hpp"
#include "host/connection_checker.hpp"
#include "host/graph.hpp"
#include "host/key_recorder.hpp"
#include "host/terminations.hpp"

namespace host {

/// Keeps what dry blocks log and what they set in the debug-data store from being seen. Outlives
/// them, because they may log when they are destroyed.
class Silence {
  public:
    /// Beside running blocks only the thread that constructs is silenced, and the log sink stays
    /// as it is; a command that runs none silences threads of the dry blocks too.
    enum class Scope { this_thread, whole_process };

    explicit Silence(Scope scope);
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence();

  private:
    Scope scope_;
    Fenwa::ThreadSilence thread_;
};

/// What a dry block lives on: a bus that is not there, and a queue that nobody empties. Outlives
/// the blocks.
struct DryTools {
    Fenwa::ConnectionTools no_bus{nullptr};
    Fenwa::InitTools tools{&no_bus};
    Fenwa::ReadyQueue queue{[] {}};
};

/// A block that was built on a bus that is not there, and set up.
struct DryBlock {
    /// Whatever the block throws is kept in `failure`.
    /// @param config usually under the eyes of a KeyRecorder.
    /// @param on_phase told of each phase before it begins, in case that it never ends.
    DryBlock(const Fenwa::BlockFactory& factory, const std::string& name,
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

/// Builds the blocks of a graph on a bus that is not there, and says of each mistake where it is:
/// unknown types, missing, mistyped and unread keys, wrong terminations, exceptions. Of one block
/// it is independent of all others. A Silence outlives it.
class DryConstruction {
  public:
    DryConstruction(const BlockTypes& types, tool::Diagnostics& diagnostics, Strictness strictness)
        : types_(types), diagnostics_(diagnostics), strictness_(strictness) {}
    DryConstruction(const DryConstruction&) = delete;
    DryConstruction& operator=(const DryConstruction&) = delete;
    /// Destroys the blocks, the last one first.
    ~DryConstruction();

    /// The block with its terminations, owned by this object, or an empty one.
    ConnectableBlock build(const BlockEntry& entry);

    /// What those that were built have not read, and have no default for either: of a key that a
    /// block only reads at times, its own table of defaults knows.
    [[nodiscard]] const std::vector<UnreadKey>& unread_keys() const noexcept { return unread_; }

    /// Blocks that threw something other than a ConfigurationError.
    [[nodiscard]] std::size_t throws() const noexcept { return throws_; }

  private:
    struct Kept {
        std::unique_ptr<Fenwa::Block> block;
        Terminations terminations;
    };

    void find_unread_keys(const KeyRecorder& recorder, const BlockEntry& entry,
                          const Fenwa::BlockFactory& factory);
    void warn(const UnreadKey& unread, const BlockEntry& entry);
    void complain(const BlockEntry& entry, const DryBlock& dry);
    void complain_of_throw(const BlockEntry& entry, const DryBlock& dry);

    const BlockTypes& types_;
    tool::Diagnostics& diagnostics_;
    Strictness strictness_;
    std::size_t throws_ = 0;
    std::vector<UnreadKey> unread_;
    DryTools tools_;
    std::deque<Kept> kept_;  ///< referred to, so that they must not move
};

/// Reports a ConfigurationError of a block at its key, or at the block where the key is missing.
void report(const Fenwa::ConfigurationError& error, const BlockEntry& entry,
            tool::Diagnostics& diagnostics);

}  // namespace host
