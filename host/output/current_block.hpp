#pragma once

#include <systemd/sd-bus.h>

#include <string>

#include "host/output/activity.hpp"

namespace host {

/// While one lives, the thread is in an operation of this block, to which its log lines belong.
/// Thread of the loop.
class CurrentBlock {
  public:
    /// @param name outlives this object.
    /// @param phase the operation: "run", "its constructor"; a string literal.
    CurrentBlock(const std::string& name, const char* phase);
    CurrentBlock(const CurrentBlock&) = delete;
    CurrentBlock& operator=(const CurrentBlock&) = delete;
    ~CurrentBlock();

    /// The name of the calling thread's block: of the operation, or else of the slot whose callback
    /// the connection is in. Null outside of these; valid until the next call.
    [[nodiscard]] static const std::string* name() noexcept;

    /// From here on `name()` looks at the slots of this connection, on the calling thread.
    /// @param bus outlives that; null for none.
    static void follow(sd_bus* bus) noexcept;
    /// The callbacks of a slot belong to the block of the calling thread, if there is one. Its name
    /// is kept in the slot's description.
    static void mark(sd_bus_slot& slot) noexcept;

  private:
    const Activity activity_;
    const std::string* outer_;
};

}  // namespace host
