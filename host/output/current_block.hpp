#pragma once

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

    /// The name of the calling thread's block, null outside of all operations.
    [[nodiscard]] static const std::string* name() noexcept;

  private:
    const Activity activity_;
    const std::string* outer_;
};

}  // namespace host
