#pragma once

#include <memory>
#include <string>

#include "fenwa/tools.hpp"

namespace Fenwa::testkit {

/// A dbus-daemon of the test's own, without activation, for as long as it lives. The program
/// dbus-daemon has to be installed. Its files are in a temporary folder that is removed at the end.
class PrivateBus {
  public:
    /// Waits until the daemon listens.
    /// @throws std::runtime_error, with a sentence, when it does not start.
    PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    /// The D-Bus address of the bus.
    [[nodiscard]] const std::string& address() const noexcept;
    /// The tools of a block, over one connection of the bus. `BlockDriver::wait_until` dispatches
    /// it. Owned by the bus, which outlives the blocks.
    [[nodiscard]] SDBusTools& tools() noexcept;

  private:
    struct State;

    std::unique_ptr<State> state_;
};

}  // namespace Fenwa::testkit
