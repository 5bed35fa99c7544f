#pragma once

#include <string>
#include <vector>

#include "fenwa/debug_data.hpp"

namespace support {

/// Records what blocks do with the debug-data store while it lives, and hands it on to the store.
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
    /// "KEY = #ALTERNATIVE VALUE" for every value set since the last time.
    [[nodiscard]] std::vector<std::string> take_values();

  private:
    std::vector<Registration> registrations_;
    std::vector<std::string> values_;
};

}  // namespace support
