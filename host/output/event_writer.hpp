#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "common/text/json.hpp"
#include "common/text/terminal.hpp"
#include "fenwa/block_configuration.hpp"
#include "fenwa/datatype.hpp"
#include "fenwa/debug_data.hpp"
#include "host/output/journal.hpp"
#include "host/output/standard_output.hpp"
#include "host/value/port_value.hpp"

namespace host {

/// Tells the world what happens in a graph, each event at once and whole. Any thread.
class EventWriter {
  public:
    virtual ~EventWriter() = default;

    /// Settings that a block handed over in its setup.
    virtual void setup(const std::string& block, const Fenwa::BlockConfiguration& settings) = 0;
    /// All blocks are started.
    virtual void ready() = 0;
    /// An output carries a new value.
    virtual void output(const std::string& block, const std::string& port,
                        const Fenwa::Datatype& datatype, const PortValue& value) = 0;
    /// A debug-data entry was set.
    virtual void debug(const std::string& key, const Fenwa::DebugValue& value) = 0;
    /// A block handed a line to the logger; `message` as it was given.
    virtual void log(int level, const std::string& message) = 0;
    /// The line for whoever reads stdout again after so many lines were dropped; writes nothing.
    [[nodiscard]] virtual std::string dropped(std::size_t lines) const = 0;
    /// The run is over; `status` is the exit code.
    virtual void exit(int status) = 0;

    /// Can be read from when `settle` is to be called, which tells how often log lines have been
    /// repeated; -1 where it never is.
    [[nodiscard]] virtual int settle_descriptor() const noexcept { return -1; }
    virtual void settle() {}
};

/// text: values on stdout, all but the ticks of timers, and log lines on stderr (or in the journal,
/// where stderr leads to it). json: one JSON object a line on stdout, flushed at each line; log
/// lines also go to the journal. On stderr and in the journal, lines that are repeated quickly are
/// told once, with a number (`RepeatedLines`).
enum class EventFormat { text, json };

/// @param color of text; JSON has none.
[[nodiscard]] std::unique_ptr<EventWriter> make_event_writer(EventFormat format,
                                                             StandardOutput& out,
                                                             const Journal& journal,
                                                             common::ColorChoice color);

}  // namespace host
