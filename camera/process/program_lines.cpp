#include "camera/process/program_lines.hpp"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <limits>
#include <optional>
#include <system_error>

#include "common/bus/callback.hpp"
#include "common/text/number_text.hpp"

namespace camera {
namespace {

/// A program takes this long at most between reading the clock and writing the line.
constexpr std::chrono::milliseconds hold_time{50};
/// A longer line is passed on in parts.
constexpr std::size_t max_line = std::size_t{1024} * 1024;

/// The seconds at the beginning of an event line: `   1.042  `, perhaps in a colour.
std::optional<double> seconds_in(std::string_view line) {
    if (line.starts_with("\033["))
        line.remove_prefix(std::min(line.size(), line.find('m') + 1));
    line.remove_prefix(std::min(line.size(), line.find_first_not_of(' ')));
    const std::size_t end = line.find_first_not_of("0123456789.");
    const std::string_view number = line.substr(0, end);
    if (number.size() < 5 || number[number.size() - 4] != '.')
        return std::nullopt;
    return common::parse_number<double>(number);
}

}  // namespace

ProgramLines::ProgramLines(sd_event& event, common::StandardOutput& out, common::ColorChoice color)
    : event_(event),
      out_(out),
      out_colors_(common::use_color(color, stdout)),
      error_colors_(common::use_color(color, stderr)),
      timers_(event) {}

ProgramLines::Pipes ProgramLines::connect(const std::string& name) {
    Pipes pipes{common::Descriptor(-1), common::Descriptor(-1)};
    connect(name, false, pipes.out);
    connect(name, true, pipes.error_output);
    return pipes;
}

void ProgramLines::connect(const std::string& name, bool is_error_output, common::Descriptor& end) {
    std::array<int, 2> pipe{};
    if (pipe2(pipe.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
    common::Descriptor input(pipe[0]);
    end = common::Descriptor(pipe[1]);
    fcntl(input.get(), F_SETFL, O_NONBLOCK);
    const common::Palette& colors = is_error_output ? error_colors_ : out_colors_;
    Stream& stream = streams_.emplace_back(Stream{this});
    stream.prefix = fmt::format("{}{} |{} ", colors.cyan, name, colors.reset);
    stream.is_error_output = is_error_output;
    stream.input = std::move(input);
    common::check(sd_event_add_io(&event_, stream.source.out(), stream.input.get(), EPOLLIN,
                                  common::callback<&Stream::on_input>, &stream),
                  "cannot read the lines of a program");
}

void ProgramLines::Stream::on_input(sd_event_source& /*source*/, int /*fd*/) {
    owner->read(*this);
    if (input.get() < 0)
        owner->streams_.remove_if([this](const Stream& each) { return &each == this; });
}

bool ProgramLines::read(Stream& stream) {
    std::array<char, 65536> some;
    const ssize_t size = ::read(stream.input.get(), some.data(), some.size());
    if (size < 0 && (errno == EAGAIN || errno == EINTR))
        return false;
    if (size > 0) {
        stream.rest.append(some.data(), static_cast<std::size_t>(size));
        take_lines(stream);
        return true;
    }
    // The program has closed it, or ended in the middle of a line.
    if (!stream.rest.empty())
        add(stream, stream.rest);
    stream.rest.clear();
    stream.source.reset();
    stream.input.close();
    return false;
}

void ProgramLines::take_lines(Stream& stream) {
    std::string_view rest = stream.rest;
    for (std::size_t end = 0; (end = rest.find('\n')) != std::string_view::npos;) {
        add(stream, rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    if (rest.size() > max_line) {
        add(stream, rest);
        rest = {};
    }
    stream.rest.erase(0, stream.rest.size() - rest.size());
}

void ProgramLines::add(Stream& stream, std::string_view line) {
    const double now = watch_.seconds();
    // No line goes ahead of one of its own stream, nor waits longer than the others.
    stream.latest = std::max(stream.latest, std::min(now, seconds_in(line).value_or(now)));
    if (held_.empty() && !finished_)
        timers_.once(hold_time, [this] {
            write_due(watch_.seconds() - std::chrono::duration<double>(hold_time).count());
        });
    held_.emplace(stream.latest,
                  Line{stream.is_error_output, fmt::format("{}{}\n", stream.prefix, line)});
}

void ProgramLines::write_own(std::string_view line) {
    if (streams_.empty() && held_.empty())
        return out_.write(line);
    if (line.ends_with('\n'))
        line.remove_suffix(1);
    add(own_, line);
}

void ProgramLines::write_due(double until) {
    while (!held_.empty() && held_.begin()->first <= until) {
        const Line line = std::move(held_.extract(held_.begin()).mapped());
        pass_on(line);
    }
    if (!held_.empty())
        timers_.once(hold_time / 5, [this] {
            write_due(watch_.seconds() - std::chrono::duration<double>(hold_time).count());
        });
}

void ProgramLines::pass_on(const Line& line) {
    if (line.is_error_output)
        std::cerr << line.text << std::flush;
    else
        out_.write(line.text);
}

void ProgramLines::finish() {
    finished_ = true;
    for (Stream& stream : streams_) {
        while (stream.input.get() >= 0 && read(stream)) {
        }
    }
    for (Stream& stream : streams_) {
        if (!stream.rest.empty())
            add(stream, stream.rest);
    }
    streams_.clear();
    write_due(std::numeric_limits<double>::infinity());
}

}  // namespace camera
