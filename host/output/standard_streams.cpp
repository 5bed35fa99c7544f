#include "host/output/standard_streams.hpp"

#include <fmt/format.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <streambuf>

#include "common/events/journal.hpp"
#include "common/events/standard_output.hpp"
#include "host/output/activity.hpp"
#include "host/output/output_writer.hpp"
#include "host/output/urgent_message.hpp"

namespace host {
namespace {

/// Hands all that comes to a writer, which keeps it.
class WriterBuffer final : public std::streambuf {
  public:
    explicit WriterBuffer(OutputWriter& writer) : writer_(writer) {}

  protected:
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        writer_.append({text, static_cast<std::size_t>(size)});
        return size;
    }
    int_type overflow(int_type c) override {
        const char text = traits_type::to_char_type(c);
        if (!traits_type::eq_int_type(c, traits_type::eof()))
            writer_.append({&text, 1});
        return traits_type::not_eof(c);
    }

  private:
    OutputWriter& writer_;
};

// Neither is ever destroyed: their threads live as long as the process.
OutputWriter* out_writer = nullptr;
OutputWriter* err_writer = nullptr;

/// Calls a function for each writer once.
template <class Function>
void for_each_writer(Function function) {
    if (out_writer != nullptr)
        function(*out_writer);
    if (err_writer != nullptr && err_writer != out_writer)
        function(*err_writer);
}

/// Whether a reader that does not read can make a write wait; a file or a device takes everything
/// at once, or fails at once.
bool can_wait(int fd) noexcept {
    return common::has_reader(fd) || isatty(fd) == 1;
}

bool lead_to_the_same(int a, int b) {
    struct stat first {};
    struct stat second {};
    return fstat(a, &first) == 0 && fstat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

void before_fork() {
    for_each_writer([](OutputWriter& writer) { writer.before_fork(); });
}
void after_fork_in_parent() {
    for_each_writer([](OutputWriter& writer) { writer.after_fork(false); });
}
void after_fork_in_child() {
    for_each_writer([](OutputWriter& writer) { writer.after_fork(true); });
}

void drain(OutputWriter* writer, const char* stream) {
    if (writer == nullptr)
        return;
    const Activity waiting("the reader of", stream, nullptr);
    if (!writer->drain())
        say_at_once(common::Severity::warning,
                    fmt::format("gave up waiting for the reader of '{}'", stream));
}

}  // namespace

void buffer_standard_streams() {
    std::cout.flush();
    if (can_wait(STDOUT_FILENO)) {
        out_writer = new OutputWriter(STDOUT_FILENO);
        std::cout.rdbuf(new WriterBuffer(*out_writer));
    }
    if (can_wait(STDERR_FILENO)) {
        const bool shared = out_writer != nullptr && lead_to_the_same(STDOUT_FILENO, STDERR_FILENO);
        err_writer = shared ? out_writer : new OutputWriter(STDERR_FILENO);
        std::cerr.rdbuf(new WriterBuffer(*err_writer));
    }
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
    std::atexit(drain_standard_streams);
}

void describe_dropped_output(std::function<std::string(std::size_t lines)> description) {
    if (out_writer != nullptr)
        out_writer->describe_dropped(std::move(description));
}

void on_output_failure(std::function<void(int error)> handler) {
    if (out_writer != nullptr)
        out_writer->on_failure(std::move(handler));
}

void drop_unread_lines() noexcept {
    for_each_writer([](OutputWriter& writer) { writer.drop_when_full(); });
}

void drain_output() {
    drain(out_writer, "stdout");
}

void drain_standard_streams() {
    drain(out_writer, "stdout");
    if (err_writer != out_writer)
        drain(err_writer, "stderr");
}

void say_at_once(common::Severity severity, std::string_view sentence, std::string_view block) {
    if (common::send_to_journal(severity, sentence, block))
        return;
    const std::string line = common::message_line(sentence);
    if (err_writer != nullptr)
        err_writer->append_at_once(line);
    else
        write_urgently(line);
}

std::size_t unwritten_output() noexcept {
    std::size_t bytes = 0;
    for_each_writer([&bytes](OutputWriter& writer) { bytes += writer.unwritten(); });
    return bytes;
}

}  // namespace host
