#pragma once

#include <systemd/sd-event.h>

#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

#include "camera/bus/timers.hpp"
#include "common/bus/bus.hpp"
#include "common/events/standard_output.hpp"
#include "common/events/stopwatch.hpp"
#include "common/process/descriptor.hpp"
#include "common/text/terminal.hpp"

namespace camera {

/// Passes the lines of programs on, with the name of each program in front, between the camera's
/// own lines. Lines stay whole and, within a stream, in order. All together are in the order of the
/// seconds at their beginnings, for which each is held back for 50 ms. Everything runs on the loop.
class ProgramLines {
  public:
    /// @param out takes the lines of standard outputs; outlives this object.
    /// @param color of the names.
    ProgramLines(sd_event& event, common::StandardOutput& out, common::ColorChoice color);
    ProgramLines(const ProgramLines&) = delete;
    ProgramLines& operator=(const ProgramLines&) = delete;

    /// The ends of two pipes that a program writes to.
    struct Pipes {
        common::Descriptor out;
        common::Descriptor error_output;
    };
    /// @param name of the program, put in front of its lines.
    /// @throws std::system_error when no pipe can be made.
    [[nodiscard]] Pipes connect(const std::string& name);

    /// Takes the lines of the camera itself, and never fails.
    [[nodiscard]] common::StandardOutput& own() noexcept { return own_out_; }
    /// Reads what the programs have written so far, and writes all that is held back. Nothing is
    /// held back from here on.
    void finish();

  private:
    /// Hands over each text that is written and flushed.
    struct Sink final : std::stringbuf {
        explicit Sink(ProgramLines& lines) : owner(lines) {}
        int sync() override {
            owner.write_own(str());
            str({});
            return 0;
        }

        ProgramLines& owner;
    };
    /// A standard stream of a program, or of the camera.
    struct Stream {
        void on_input(sd_event_source& source, int fd);

        ProgramLines* owner;
        std::string prefix{};
        bool is_error_output = false;
        double latest = 0.0;  ///< the seconds of its last line
        common::Descriptor input{-1};
        common::EventSourcePtr source{};
        std::string rest{};  ///< the beginning of a line
    };
    struct Line {
        bool is_error_output;
        std::string text;
    };

    void connect(const std::string& name, bool is_error_output, common::Descriptor& end);
    /// Reads once; false where there is nothing more for now, or at all.
    bool read(Stream& stream);
    void write_own(std::string_view line);
    void take_lines(Stream& stream);
    void add(Stream& stream, std::string_view line);
    void write_due(double until);
    void pass_on(const Line& line);

    sd_event& event_;
    common::Stopwatch watch_;
    common::StandardOutput& out_;
    common::Palette out_colors_;
    common::Palette error_colors_;
    std::list<Stream> streams_;
    Stream own_{this};
    std::multimap<double, Line> held_;  // by seconds
    bool finished_ = false;             // the loop takes no timer any more
    Timers timers_;
    Sink sink_{*this};
    std::ostream own_stream_{&sink_};
    common::StandardOutput own_out_{[] {}, own_stream_};
};

}  // namespace camera
