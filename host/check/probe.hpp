#pragma once

#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "fenwa/block.hpp"
#include "fenwa/registry.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/ready_queue.hpp"
#include "host/graph/graph.hpp"
#include "host/graph/ports.hpp"
#include "host/plugin/block_types.hpp"

namespace host {

/// A setting that no getter read; most likely a typing mistake.
struct UnreadKey {
    std::string key;
    SourceLocation location;
    std::string help;  ///< names the nearest key that was read; empty for none
};

/// The sentence for an unread key of a block.
[[nodiscard]] std::string describe_unread_key(const UnreadKey& unread, const BlockEntry& entry);

/// The value that a getter returns for a key that is missing or of another type.
enum class MadeUpValue {
    zero,
    plausible  ///< for a missing key 1, "1" or true, which more blocks accept than a zero
};

/// Records which keys a block reads. A key that is missing or of another type has a made-up value,
/// so that the block reads the next key too. On the thread that reads.
class KeyRecorder final : public Fenwa::ConfigurationObserver {
  public:
    /// @param on_mistake called for each such key; may be empty.
    /// @param on_read called for each read of a key; may be empty.
    explicit KeyRecorder(std::function<void(const Fenwa::ConfigurationError&)> on_mistake = {},
                         std::function<void(const Fenwa::KeyRead&)> on_read = {},
                         MadeUpValue made_up = MadeUpValue::zero)
        : on_mistake_(std::move(on_mistake)), on_read_(std::move(on_read)), made_up_(made_up) {}

    void on_read(const Fenwa::KeyRead& read) override;
    std::optional<Fenwa::BlockConfiguration::Value> on_error(
        const Fenwa::ConfigurationError& error) override;

    /// From here on the block is in `reconfigure`.
    void enter_reconfigure() noexcept { in_reconfigure_ = true; }
    /// The keys that the block has read before `reconfigure`.
    [[nodiscard]] const std::set<std::string>& keys_read_when_built() const noexcept {
        return read_when_built_;
    }
    /// The keys that the block has read in `reconfigure`: a change of these reaches it.
    [[nodiscard]] const std::set<std::string>& live_keys() const noexcept { return live_; }
    /// The boolean keys that the block has read, with the opposite of their values.
    [[nodiscard]] std::vector<Fenwa::BlockConfiguration::KeyValue> toggled_booleans() const;

    /// Whether the block was given a made-up value: what it throws then is most likely not its own
    /// mistake.
    [[nodiscard]] bool made_up_a_value() const noexcept { return has_made_up_; }

    /// The keys that were read and have a value: the setting, or else the default of the getter.
    [[nodiscard]] Fenwa::BlockConfiguration values() const;

    /// Whether the entry has settings that the block has not read.
    [[nodiscard]] bool has_unread_keys(const BlockEntry& entry) const;
    /// The entry's settings that the block has not read.
    [[nodiscard]] std::vector<UnreadKey> unread_keys(const BlockEntry& entry,
                                                     common::Suggester& suggester) const;

    /// For a block whose constructor threw: only unread keys that resemble a missing one.
    [[nodiscard]] std::vector<UnreadKey> near_misses(const BlockEntry& entry,
                                                     common::Suggester& suggester) const;

  private:
    [[nodiscard]] bool was_read(const std::string& key) const {
        return read_when_built_.count(key) != 0 || live_.count(key) != 0;
    }
    /// A setting without a value is reported already.
    [[nodiscard]] bool is_unread(const Setting& setting) const {
        return setting.value && !was_read(setting.key);
    }

    std::function<void(const Fenwa::ConfigurationError&)> on_mistake_;
    std::function<void(const Fenwa::KeyRead&)> on_read_;
    MadeUpValue made_up_;
    std::map<std::string, Fenwa::BlockConfiguration::Value> values_;  ///< of the last read
    std::vector<std::string> read_;  ///< each key once, in the order of the first read
    std::set<std::string> read_when_built_;
    std::set<std::string> live_;
    std::map<std::string, bool> booleans_;
    std::vector<std::string> missing_;
    bool in_reconfigure_ = false;
    bool has_made_up_ = false;
};

/// The surroundings of a probed block: no bus, and a queue that is never emptied. Outlives the
/// blocks.
struct ProbeTools {
    Fenwa::ConnectionTools no_bus{nullptr};
    Fenwa::InitTools tools{&no_bus};
    Fenwa::ReadyQueue queue{[] {}};
};

/// A block that was built without a bus, and set up.
struct ProbedBlock {
    /// Keeps what the block throws in `failure`.
    /// @param config usually observed by a KeyRecorder.
    /// @param on_phase called before each phase, which may never end; may be empty.
    ProbedBlock(const Fenwa::BlockFactory& factory, const std::string& name,
                const Fenwa::BlockConfiguration& config, ProbeTools& tools,
                const std::function<void(const char* phase)>& on_phase = {});

    std::unique_ptr<Fenwa::Block> block;  ///< null if the factory threw, or returned none
    Fenwa::BlockConfiguration settings;   ///< returned by the setup
    std::exception_ptr failure;           ///< null for none
    const char* phase = nullptr;          ///< the last one: "its constructor" or "setup"
};

/// The `what()` of an exception, for a sentence; a fixed text for other types.
[[nodiscard]] std::string message_of(const std::exception_ptr& exception);

/// The treatment of an exception that a block throws without a bus.
enum class Strictness {
    alone,         ///< an error, or a warning if the block needs a bus
    before_a_run,  ///< ignored: the real construction shows it
    in_a_run       ///< an error, or ignored if the block needs a bus
};

/// How far a probe goes beyond what a run does with a block; a failure there is no mistake of the
/// graph.
enum class Depth {
    build,        ///< not beyond
    reconfigure,  ///< reconfigures it with its own settings, builds it without its unread keys
    toggle        ///< builds and reconfigures it with its boolean keys toggled
};

/// Follows a probe, which may never end; each function may be empty.
struct ProbeProgress {
    /// Called before each phase.
    std::function<void(const char* phase, Depth depth)> on_phase;
    /// Called before the block gets a made-up value: a later failure is most likely not its own
    /// mistake.
    std::function<void()> on_made_up_value;
};

/// Builds a block of a graph without a bus, and reports each mistake at its place: unknown type,
/// missing, mistyped and unread keys, wrong terminations, exceptions.
class Probe {
  public:
    /// All references outlive this object.
    Probe(const BlockEntry& entry, const BlockTypes& types, common::Diagnostics& diagnostics,
          Strictness strictness, ProbeProgress progress = {});
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    /// Builds the block and sets it up. @returns whether it exists.
    bool build();

    /// After a successful `build`: warns of the keys that the block reads neither then nor in
    /// `reconfigure`, and has no default for. A key that a block reads only at times is in its own
    /// table of defaults. Reconfigures the block if it has unread keys.
    void find_unread_keys();
    /// The keys that `find_unread_keys` warned of.
    [[nodiscard]] const std::vector<UnreadKey>& unread_keys() const noexcept { return unread_; }

    /// After a successful `build` and `find_unread_keys`: finds the keys that the block reads in
    /// `reconfigure`, also those that it reads with its boolean keys toggled.
    /// @param depth at most.
    void find_live_keys(Depth depth);
    /// Empty before `find_live_keys`.
    [[nodiscard]] const std::optional<std::set<std::string>>& live_keys() const noexcept {
        return live_;
    }
    /// The keys that the block has read in its constructor and its setup.
    [[nodiscard]] const std::set<std::string>& keys_read_when_built() const noexcept {
        return recorder_->keys_read_when_built();
    }

    [[nodiscard]] const BlockEntry& entry() const noexcept { return entry_; }
    /// The block with its terminations, owned by this object; null if it was not built.
    [[nodiscard]] ConnectableBlock block() const;

    /// After a successful `build`: as `KeyRecorder::values`.
    [[nodiscard]] Fenwa::BlockConfiguration values() const { return recorder_->values(); }

    /// Whether the block threw something other than a ConfigurationError that was reported.
    [[nodiscard]] bool threw() const noexcept { return threw_; }

    /// Destroys the block.
    void destroy();

  private:
    void enter(const char* phase, Depth depth);
    void reconfigure(Fenwa::Block& block, const std::shared_ptr<KeyRecorder>& recorder,
                     Depth depth);
    [[nodiscard]] bool may_read_more_keys() const;
    void on_mistake(const Fenwa::ConfigurationError& error);
    void warn(const UnreadKey& unread);
    void report_mistakes(const ProbedBlock& probed);
    void report_throw(const ProbedBlock& probed);

    const BlockEntry& entry_;
    const BlockTypes& types_;
    common::Diagnostics& diagnostics_;
    Strictness strictness_;
    ProbeProgress progress_;
    const Fenwa::BlockFactory* factory_ = nullptr;
    std::shared_ptr<KeyRecorder> recorder_;
    Depth depth_ = Depth::build;
    bool threw_ = false;
    std::vector<UnreadKey> unread_;
    std::optional<std::set<std::string>> live_;
    ProbeTools tools_;
    std::unique_ptr<Fenwa::Block> block_;
    Terminations terminations_;
};

/// Reports a ConfigurationError of a block at its key, or at the block if the key is missing.
void report(const Fenwa::ConfigurationError& error, const BlockEntry& entry,
            common::Diagnostics& diagnostics);

}  // namespace host
