#pragma once

#include <sys/types.h>

#include <chrono>
#include <vector>

namespace common {

/// From here on the processes that a child leaves running when it ends become children of this
/// process, in place of the init system's. Single-threaded processes only.
void adopt_orphans() noexcept;

/// The children of this process, including those that wait to be reaped.
[[nodiscard]] std::vector<pid_t> children_of_this_process();

/// Kills all children, their orphans, and so on, and reaps them until none is left; gives
/// up after `limit`, as one that belongs to another user cannot be killed.
/// Where orphans are adopted, nothing that was started below this process is left then.
void kill_children(std::chrono::milliseconds limit = std::chrono::seconds(5)) noexcept;

}  // namespace common
