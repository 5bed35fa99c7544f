#pragma once

#include <string>

#include "host/output/activity.hpp"

namespace host {

/// Whether a stream leads to the journal's socket.
[[nodiscard]] bool leads_to_journal(int fd);

/// The journal of systemd, in use when the host runs under it, that is, when stderr leads to the
/// journal's socket. Any thread.
class Journal {
  public:
    /// @param graph the graph file as it was typed, for the field FENWA_GRAPH.
    explicit Journal(std::string graph);

    /// Sends one log line with its priority (1 → error, 2 → warning, 4 → info) and the fields
    /// FENWA_GRAPH and, where `block` is not empty, FENWA_BLOCK.
    /// @returns false when the journal is not in use or does not take the line.
    bool send(int level, const std::string& message, const std::string& block) const;

    [[nodiscard]] bool in_use() const noexcept { return in_use_; }

  private:
    std::string graph_;
    bool in_use_;
};

/// While one lives, the thread is in an operation of this block, to which its log lines belong.
/// Thread of the loop.
class CurrentBlock {
  public:
    /// @param name outlives this object.
    /// @param phase which operation: "run", "its constructor"; a string literal.
    CurrentBlock(const std::string& name, const char* phase);
    CurrentBlock(const CurrentBlock&) = delete;
    CurrentBlock& operator=(const CurrentBlock&) = delete;
    ~CurrentBlock();

    /// The name, or null where none is known.
    [[nodiscard]] static const std::string* name() noexcept;

  private:
    const Activity activity_;
    const std::string* outer_;
};

}  // namespace host
