#pragma once

#include <string>
#include <string_view>

#include "common/events/message.hpp"

namespace common {

/// Whether a stream leads to the socket of systemd's journal.
[[nodiscard]] bool leads_to_journal(int fd);

/// Uses the journal from here on if stderr leads to it.
/// @param identifier the field SYSLOG_IDENTIFIER of every entry.
void open_journal(const std::string& identifier);
[[nodiscard]] bool uses_journal() noexcept;

/// Adds the field FENWA_GRAPH to every later entry. Before threads are started.
void set_journal_graph(const std::string& graph);

/// Sends one entry with its priority. Any thread; in a signal handler too for a message of at most
/// 1000 bytes.
/// @param block the field FENWA_BLOCK, which an empty one leaves out.
/// @returns false if the journal is not in use or does not take the entry.
bool send_to_journal(Severity severity, std::string_view message,
                     std::string_view block = {}) noexcept;

}  // namespace common
