#include "camera/cli/buffered_streams.hpp"

#include <cstdlib>
#include <iostream>
#include <utility>

#include "common/events/message.hpp"
#include "common/events/output_writer.hpp"

namespace camera {
namespace {

using common::OutputWriter;

// Neither is ever destroyed: their threads live as long as the process.
common::StreamWriters writers;

void drain() {
    if (writers.out != nullptr && !writers.out->drain()) {
        const std::string line = common::message_line("gave up waiting for the reader of 'stdout'");
        if (writers.err != nullptr)
            writers.err->append_at_once(line);
        else
            std::cerr << line << std::flush;
    }
    if (writers.err != nullptr && writers.err != writers.out)
        writers.err->drain();
}

}  // namespace

void buffer_streams() {
    writers = common::buffer_streams();
    for (OutputWriter* const writer : {writers.out, writers.err}) {
        if (writer != nullptr)
            writer->drop_when_full();
    }
    std::atexit(drain);
}

void describe_dropped_lines(std::function<std::string(std::size_t lines)> description) {
    if (writers.out != nullptr)
        writers.out->describe_dropped(std::move(description));
}

}  // namespace camera
