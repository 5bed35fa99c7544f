#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "fenwa/block.hpp"
#include "fenwa/block_configuration.hpp"
#include "fenwa/tools.hpp"
#include "tests/support/bus_messages.hpp"

namespace faults {

class Life;

/// A type of block, and the services that it needs.
struct BlockContext {
    std::unique_ptr<Fenwa::Block> (*build)(const Fenwa::InitTools& tools,
                                           const Fenwa::BlockConfiguration& settings) = nullptr;
    Fenwa::BlockConfiguration settings{};
    /// The replies to its calls, by their members.
    std::map<std::string, std::function<support::Message(support::Messages&)>> replies{};
    /// The bus name whose owner changes; null where the block follows none.
    const char* service = nullptr;
    /// Whether an input wakes it every now and then, which a block without inputs cannot expect.
    bool is_ticked = false;
    /// What the services signal and call when they are at work; the turn is 0, 1, …
    std::function<void(Life&, int turn)> traffic = [](Life& /*life*/, int /*turn*/) {};
};

// One of each type of block. Each service is at work again after its restart.

[[nodiscard]] BlockContext reader();
[[nodiscard]] BlockContext temperature_monitor();
[[nodiscard]] BlockContext consumer();
[[nodiscard]] BlockContext power_monitor();
[[nodiscard]] BlockContext controls();
/// Without buttons of its own: it takes away what is there.
[[nodiscard]] BlockContext controls_without_buttons();
[[nodiscard]] BlockContext overlay();
[[nodiscard]] BlockContext video();

}  // namespace faults
