#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "common/events/event_lines.hpp"
#include "common/events/standard_output.hpp"
#include "common/text/terminal.hpp"
#include "fenwa/block_configuration.hpp"
#include "fenwa/datatype.hpp"
#include "fenwa/debug_data.hpp"
#include "host/value/port_value.hpp"

namespace host {

/// Writes what happens in a graph, each event at once and whole. Any thread.
class EventWriter {
  public:
    virtual ~EventWriter() = default;

    /// The settings that a block returns from its setup.
    virtual void setup(const std::string& block, const Fenwa::BlockConfiguration& settings) = 0;
    /// All blocks are started.
    virtual void ready() = 0;
    /// What the lines about the new values of an output begin with, for `output`. Empty where these
    /// are not written. Asked once, before the first of them. Thread of the loop.
    [[nodiscard]] virtual std::string output_label(const std::string& block,
                                                   const std::string& port,
                                                   const Fenwa::Datatype& datatype) = 0;
    /// An output carries a new value.
    /// @param label its `output_label`, not empty.
    virtual void output(const std::string& label, const Fenwa::Datatype& datatype,
                        const PortValue& value) = 0;
    /// A debug-data entry was set.
    virtual void debug(const std::string& key, const Fenwa::DebugValue& value) = 0;
    /// The block of `CurrentBlock`, if there is one, logs a line; `message` as the block gives it.
    virtual void log(int level, const std::string& message) = 0;
    /// The line that replaces so many dropped lines of stdout; writes nothing.
    [[nodiscard]] virtual std::string dropped(std::size_t lines) const = 0;
    /// The run is over; `status` is the exit code.
    virtual void exit(int status) = 0;

    /// Readable when `settle` is due, which writes how often log lines were repeated; -1 for never.
    [[nodiscard]] virtual int settle_descriptor() const noexcept { return -1; }
    virtual void settle() {}
};

/// text: values on stdout; log lines on stderr, or in the journal if stderr leads to it. json:
/// everything on stdout; log lines also go to the journal. On stderr and in the journal, lines that
/// a block repeats quickly appear once, with a number (`RepeatedLines`).
/// @param color of text; JSON has none.
/// @param timestamps of text, on stdout and stderr; the journal has its own.
[[nodiscard]] std::unique_ptr<EventWriter> make_event_writer(common::EventFormat format,
                                                             common::StandardOutput& out,
                                                             common::ColorChoice color,
                                                             common::Timestamps timestamps);

}  // namespace host
