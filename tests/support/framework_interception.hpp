#pragma once

#include <pthread.h>

#include <functional>
#include <string>
#include <vector>

#include "fenwa/block.hpp"

namespace support {

/// The inputs and event ports of a block that are triggered now, without a look in the journal.
[[nodiscard]] std::vector<std::string> triggered_ports(const Fenwa::Block& block);

/// The same settings; the journal tells which are read, "TYPE KEY", with " or a default" behind it
/// where one was given.
[[nodiscard]] Fenwa::BlockConfiguration observed(const Fenwa::BlockConfiguration& config);

/// The first mutex that is locked while `call` runs, or null.
[[nodiscard]] pthread_mutex_t* mutex_locked_by(const std::function<void()>& call);

/// Puts "lock" and "unlock" of one mutex into the journal while it lives.
class LockRecorder {
  public:
    explicit LockRecorder(pthread_mutex_t* mutex);
    LockRecorder(const LockRecorder&) = delete;
    LockRecorder& operator=(const LockRecorder&) = delete;
    ~LockRecorder();

    /// The next lock fails with this errno.
    void fail_next(int error);
};

}  // namespace support
