#include "common/events/output_writer.hpp"

#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <iostream>
#include <streambuf>
#include <utility>

#include "common/events/message.hpp"
#include "common/events/standard_output.hpp"
#include "common/process/background_thread.hpp"
#include "common/text/diagnostics.hpp"

namespace common {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds reader_limit{5};

/// The part of a text that goes out in one write: whole lines, which a pipe takes in one piece, so
/// that another writer's do not come in between.
std::size_t piece_of(std::string_view text) {
    if (text.size() <= PIPE_BUF)
        return text.size();
    const std::size_t end = text.rfind('\n', PIPE_BUF - 1);
    return end == text.npos ? PIPE_BUF : end + 1;
}

/// Hands all that comes to a writer, which keeps it. Without memory the process ends here: a stream
/// would swallow the exception, and take nothing from then on.
class WriterBuffer final : public std::streambuf {
  public:
    explicit WriterBuffer(OutputWriter& writer) : writer_(writer) {}

  protected:
    std::streamsize xsputn(const char* text, std::streamsize size) noexcept override {
        writer_.append({text, static_cast<std::size_t>(size)});
        return size;
    }
    int_type overflow(int_type c) noexcept override {
        const char text = traits_type::to_char_type(c);
        if (!traits_type::eq_int_type(c, traits_type::eof()))
            writer_.append({&text, 1});
        return traits_type::not_eof(c);
    }

  private:
    OutputWriter& writer_;
};

void write_through(std::ostream& stream, OutputWriter& writer) {
    stream.rdbuf(new WriterBuffer(writer));
}

/// @returns the writer; null where nobody reads who may not.
OutputWriter* buffer_stream(std::ostream& stream, int fd) {
    if (!has_reader(fd) && isatty(fd) != 1)
        return nullptr;
    auto* const writer = new OutputWriter(fd);
    write_through(stream, *writer);
    return writer;
}

/// Whether two descriptors lead to the same file.
bool lead_to_the_same(int a, int b) noexcept {
    struct stat first {};
    struct stat second {};
    return fstat(a, &first) == 0 && fstat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

}  // namespace

std::string dropped_line(std::size_t lines) {
    return message_line(
        fmt::format("dropped {} here, because nobody read them", counted(lines, "line")));
}

OutputWriter::OutputWriter(int fd) : fd_(fd) {
    start_background_thread([this] { serve(); });
}

void OutputWriter::append(std::string_view text) {
    append(text, WhenFull::wait);
}

void OutputWriter::append_at_once(std::string_view text) {
    append(text, WhenFull::drop);
}

void OutputWriter::append(std::string_view text, WhenFull when_full) {
    if (text.empty())
        return;
    std::unique_lock lock(mutex_);
    if (on_callers_thread_) {
        write_piece(text);
        return;
    }
    if (when_full == WhenFull::wait)
        changed_.wait(lock, [this] { return pending_.size() < limit || drops_ || error_ != 0; });
    if (error_ != 0)
        return;
    if (!in_line_) {
        dropping_ = pending_.size() >= limit;
        if (!dropping_ && dropped_ != 0)
            tell_dropped();
    }
    in_line_ = text.back() != '\n';
    if (dropping_) {
        dropped_ += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
        return;
    }
    pending_.append(text);
    unwritten_ += text.size();
    // The rest of a line comes soon; in one piece it is safe from other writers.
    if (!in_line_ && std::exchange(sleeping_, false))
        wake_.notify_one();
}

void OutputWriter::tell_dropped() {
    const std::string line = description_ ? description_(dropped_) : dropped_line(dropped_);
    dropped_ = 0;
    pending_.append(line);
    unwritten_ += line.size();
}

void OutputWriter::drop_when_full() noexcept {
    const std::lock_guard lock(mutex_);
    drops_ = true;
    changed_.notify_all();
}

void OutputWriter::describe_dropped(std::function<std::string(std::size_t)> description) {
    const std::lock_guard lock(mutex_);
    description_ = std::move(description);
}

void OutputWriter::on_failure(std::function<void(int)> handler) {
    const std::lock_guard lock(mutex_);
    on_failure_ = std::move(handler);
}

bool OutputWriter::drain() {
    std::unique_lock lock(mutex_);
    drains_ = true;
    wake_.notify_one();
    std::size_t seen = written_;
    auto since = Clock::now();
    while (unwritten_ != 0 && error_ == 0 && !gave_up_) {
        changed_.wait_for(lock, std::chrono::milliseconds(100));
        // Before lines may be dropped, others wait for room, and so does this.
        if (written_ != seen || !drops_) {
            seen = written_;
            since = Clock::now();
        } else if (Clock::now() - since >= reader_limit) {
            gave_up_ = true;
            return false;
        }
    }
    return true;
}

void OutputWriter::after_fork(bool in_child) {
    if (in_child) {
        on_callers_thread_ = true;
        pending_.clear();
        unwritten_ = 0;
    }
    mutex_.unlock();
}

void OutputWriter::serve() {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (pending_.empty() && dropped_ != 0 && !in_line_)
            tell_dropped();
        if (pending_.empty() || (in_line_ && !drains_ && pending_.find('\n') == pending_.npos)) {
            sleeping_ = true;
            wake_.wait(lock);
            sleeping_ = false;
            continue;
        }
        std::swap(pending_, writing_);
        changed_.notify_all();
        lock.unlock();
        write_all();
        lock.lock();
        changed_.notify_all();
    }
}

void OutputWriter::write_all() {
    for (std::string_view rest = writing_; !rest.empty();) {
        const std::string_view piece = rest.substr(0, piece_of(rest));
        if (const int error = error_ == 0 ? write_piece(piece) : 0)
            fail(error);
        rest.remove_prefix(piece.size());
        unwritten_ -= piece.size();
    }
    writing_.clear();
}

int OutputWriter::write_piece(std::string_view piece) {
    while (!piece.empty()) {
        const ssize_t n = write(fd_, piece.data(), piece.size());
        if (n >= 0) {
            piece.remove_prefix(static_cast<std::size_t>(n));
            written_ += static_cast<std::size_t>(n);
        } else if (errno == EAGAIN) {
            // Another program shares the descriptor, and has made it non-blocking.
            pollfd ready{fd_, POLLOUT, 0};
            poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

void OutputWriter::fail(int error) {
    const std::lock_guard lock(mutex_);
    error_ = error;
    if (on_failure_)
        on_failure_(error);
}

StreamWriters buffer_streams() {
    std::cout.flush();
    StreamWriters writers;
    writers.out = buffer_stream(std::cout, STDOUT_FILENO);
    if (writers.out != nullptr && lead_to_the_same(STDOUT_FILENO, STDERR_FILENO)) {
        writers.err = writers.out;
        write_through(std::cerr, *writers.err);
    } else {
        writers.err = buffer_stream(std::cerr, STDERR_FILENO);
    }
    return writers;
}

}  // namespace common
