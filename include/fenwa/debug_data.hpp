#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "fenwa/api.hpp"
#include "fenwa/block.hpp"

namespace Fenwa {

/// Value of a debug-data entry; the order of the alternatives is ABI.
using DebugValue = std::variant<std::string, std::int32_t, float, double, bool>;

/// Keeps a block listed in the debug-data store while it lives. Moves, does not copy.
class FENWA_API RegisteredBlock {
  public:
    explicit RegisteredBlock(std::uint64_t ticket) noexcept : ticket_(ticket) {}
    RegisteredBlock(RegisteredBlock&& other) noexcept : ticket_(std::exchange(other.ticket_, 0)) {}
    RegisteredBlock& operator=(RegisteredBlock&& other) noexcept {
        std::swap(ticket_, other.ticket_);
        return *this;
    }
    /// Removes the block from the list.
    ~RegisteredBlock();

  private:
    std::uint64_t ticket_;  ///< 0 for none
};

/// The framework's store of values for people who debug a graph. Safe on any thread.
///
/// The order of the virtual operations is ABI: 0 `register_block`; 1 `get_value`; 2 `set_value`.
class FENWA_API DebugDataStore {
  public:
    /// Lists a block with its configuration as long as the result lives.
    virtual RegisteredBlock register_block(const Block& block, const BlockConfiguration& config,
                                           const BlockConfiguration& extra) = 0;
    /// Returns the last value of the key; nothing if there is none.
    [[nodiscard]] virtual std::optional<DebugValue> get_value(const std::string& key) const = 0;
    /// Sets the value of a key, and adds a new key.
    virtual void set_value(std::string key, DebugValue value) = 0;

  protected:
    DebugDataStore() = default;
    // The store belongs to the framework; a virtual destructor would move the slots.
    ~DebugDataStore() = default;
};

/// The one store of the process.
FENWA_API DebugDataStore& debug_data();

}  // namespace Fenwa
