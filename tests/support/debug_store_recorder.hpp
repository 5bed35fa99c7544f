#pragma once

#include <memory>
#include <string>
#include <vector>

#include "fenwa/debug_data.hpp"
#include "tests/support/effect_journal.hpp"

namespace support {

/// Puts into the journal what blocks do with the debug-data store while it lives, and hands it on
/// to the store: "register with the debug-data store" and "KEY = #ALTERNATIVE VALUE".
class DebugStoreRecorder final : public Fenwa::DebugDataStore {
  public:
    struct Registration {
        const Fenwa::Block* block;
        std::vector<std::string> outports;  ///< those that the block had at that moment
        std::vector<std::string> config;    ///< "KEY=VALUE"
        std::vector<std::string> extra;
    };

    DebugStoreRecorder();
    DebugStoreRecorder(const DebugStoreRecorder&) = delete;
    DebugStoreRecorder& operator=(const DebugStoreRecorder&) = delete;
    ~DebugStoreRecorder();

    Fenwa::RegisteredBlock register_block(const Fenwa::Block& block,
                                          const Fenwa::BlockConfiguration& config,
                                          const Fenwa::BlockConfiguration& extra) override;
    [[nodiscard]] std::optional<Fenwa::DebugValue> get_value(const std::string& key) const override;
    void set_value(std::string key, Fenwa::DebugValue value) override;

    [[nodiscard]] const std::vector<Registration>& registrations() const { return registrations_; }
    /// The values alone.
    [[nodiscard]] std::vector<std::string> take_values() { return journal_->take(effect::debug); }

  private:
    std::vector<Registration> registrations_;
    std::shared_ptr<EffectJournal> journal_ = EffectJournal::shared();
};

}  // namespace support
