#pragma once

#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "framework/shared/configuration_access.hpp"
#include "host/graph/graph.hpp"

namespace host {

/// A setting that no getter asked for; most likely a typing mistake.
struct UnreadKey {
    std::string key;
    SourceLocation location;
    std::string help;  ///< with the nearest key that was asked for; empty for none
};

/// Says that no block of that type reads the key.
[[nodiscard]] std::string describe(const UnreadKey& unread, const BlockEntry& entry);

/// Notes which keys a block asks for, and lets it go on with a zero value where one is missing or
/// of another type, so that it asks for the next one too. On the thread that reads.
class KeyRecorder final : public Fenwa::ConfigurationObserver {
  public:
    /// @param on_mistake told of each such key; may be empty.
    /// @param on_read told of every look at a key; may be empty.
    explicit KeyRecorder(std::function<void(const Fenwa::ConfigurationError&)> on_mistake = {},
                         std::function<void(const Fenwa::KeyRead&)> on_read = {})
        : on_mistake_(std::move(on_mistake)), on_read_(std::move(on_read)) {}

    void on_read(const Fenwa::KeyRead& read) override;
    bool on_error(const Fenwa::ConfigurationError& error) override;

    /// Whether the block was given a value that it has not been configured with: what it throws
    /// then is most likely no mistake of its own.
    [[nodiscard]] bool invented_a_value() const noexcept { return invented_; }

    /// Whether there are settings of the block that it has not asked for.
    [[nodiscard]] bool has_unread_keys(const BlockEntry& entry) const;
    /// The block's settings that it has not asked for.
    [[nodiscard]] std::vector<UnreadKey> unread_keys(const BlockEntry& entry,
                                                     common::Suggester& suggester) const;

    /// The same for a block that has not lived to read all its keys: only those that look like one
    /// that it misses.
    [[nodiscard]] std::vector<UnreadKey> near_misses(const BlockEntry& entry,
                                                     common::Suggester& suggester) const;

  private:
    [[nodiscard]] bool asked_for(const std::string& key) const { return is_asked_.count(key) != 0; }
    /// One without a value is reported already.
    [[nodiscard]] bool is_unread(const Setting& setting) const {
        return setting.value && !asked_for(setting.key);
    }

    std::function<void(const Fenwa::ConfigurationError&)> on_mistake_;
    std::function<void(const Fenwa::KeyRead&)> on_read_;
    std::vector<std::string> asked_;  ///< each once, in the order in which they were asked for
    std::unordered_set<std::string> is_asked_;
    std::vector<std::string> missing_;
    bool invented_ = false;
};

}  // namespace host
