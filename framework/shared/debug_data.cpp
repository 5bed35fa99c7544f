#include "fenwa/debug_data.hpp"

#include <map>
#include <mutex>

#include "framework/shared/debug_data_store.hpp"
#include "framework/shared/log_mute.hpp"

namespace Fenwa {
namespace {

class Store final : public DebugDataStore {
  public:
    RegisteredBlock register_block(const Block& block, const BlockConfiguration& /*config*/,
                                   const BlockConfiguration& /*extra*/) override {
        if (LogMute::of_this_thread() != nullptr || LogMute::is_process_muted())
            return RegisteredBlock(0);
        const std::lock_guard lock(mutex_);
        blocks_.emplace(++last_ticket_, block.get_name());
        return RegisteredBlock(last_ticket_);
    }

    [[nodiscard]] std::optional<DebugValue> get_value(const std::string& key) const override {
        if (LogMute* const mute = LogMute::of_this_thread()) {
            const auto own = mute->debug_values().find(key);
            if (own != mute->debug_values().end())
                return own->second;
        }
        if (LogMute::is_process_muted())
            return std::nullopt;
        const std::lock_guard lock(mutex_);
        const auto found = values_.find(key);
        return found == values_.end() ? std::nullopt : std::optional(found->second);
    }

    void set_value(std::string key, DebugValue value) override {
        if (LogMute* const mute = LogMute::of_this_thread()) {
            mute->debug_values().insert_or_assign(std::move(key), std::move(value));
            return;
        }
        if (LogMute::is_process_muted())
            return;
        const std::lock_guard lock(mutex_);
        const auto entry = values_.insert_or_assign(std::move(key), std::move(value)).first;
        if (listener_)
            listener_(entry->first, entry->second);
    }

    void unregister(std::uint64_t ticket) {
        const std::lock_guard lock(mutex_);
        blocks_.erase(ticket);
    }

    void listen(DebugListener listener) {
        const std::lock_guard lock(mutex_);
        listener_ = std::move(listener);
    }

    std::vector<std::string> block_names() {
        const std::lock_guard lock(mutex_);
        std::vector<std::string> names;
        for (const auto& [ticket, name] : blocks_)
            names.push_back(name);
        return names;
    }

  private:
    mutable std::mutex mutex_;
    std::map<std::string, DebugValue> values_;
    std::map<std::uint64_t, std::string> blocks_;
    std::uint64_t last_ticket_ = 0;
    DebugListener listener_;
};

Store& store() {
    static Store instance;
    return instance;
}

}  // namespace

DebugDataStore& debug_data() {
    return store();
}

RegisteredBlock::~RegisteredBlock() {
    if (ticket_ != 0)
        store().unregister(ticket_);
}

void set_debug_listener(DebugListener listener) {
    store().listen(std::move(listener));
}

std::vector<std::string> debug_data_blocks() {
    return store().block_names();
}

}  // namespace Fenwa
