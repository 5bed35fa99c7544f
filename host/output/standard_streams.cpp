#include "host/output/standard_streams.hpp"

#include <fmt/format.h>
#include <pthread.h>

#include <cstdlib>
#include <iostream>

#include "common/events/journal.hpp"
#include "common/events/output_writer.hpp"
#include "host/output/activity.hpp"
#include "host/output/urgent_message.hpp"

namespace host {
namespace {

using common::OutputWriter;

// Neither is ever destroyed: their threads live as long as the process.
common::StreamWriters writers;

/// Calls a function for each writer once.
template <class Function>
void for_each_writer(Function function) {
    if (writers.out != nullptr)
        function(*writers.out);
    if (writers.err != nullptr && writers.err != writers.out)
        function(*writers.err);
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
    writers = common::buffer_streams();
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
    std::atexit(drain_standard_streams);
}

void describe_dropped_output(std::function<std::string(std::size_t lines)> description) {
    if (writers.out != nullptr)
        writers.out->describe_dropped(std::move(description));
}

void on_output_failure(std::function<void(int error)> handler) {
    if (writers.out != nullptr)
        writers.out->on_failure(std::move(handler));
}

void drop_unread_lines() noexcept {
    for_each_writer([](OutputWriter& writer) { writer.drop_when_full(); });
}

void drain_output() {
    drain(writers.out, "stdout");
}

void drain_standard_streams() {
    drain(writers.out, "stdout");
    if (writers.err != writers.out)
        drain(writers.err, "stderr");
}

void say_at_once(common::Severity severity, std::string_view sentence, std::string_view block) {
    if (common::send_to_journal(severity, sentence, block))
        return;
    const std::string line = common::message_line(sentence);
    if (writers.err != nullptr)
        writers.err->append_at_once(line);
    else
        write_urgently(line);
}

std::size_t unwritten_output() noexcept {
    std::size_t bytes = 0;
    for_each_writer([&bytes](OutputWriter& writer) { bytes += writer.unwritten(); });
    return bytes;
}

}  // namespace host
