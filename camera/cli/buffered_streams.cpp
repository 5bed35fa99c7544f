#include "camera/cli/buffered_streams.hpp"

#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <utility>

#include "common/events/message.hpp"
#include "common/events/output_writer.hpp"

namespace camera {
namespace {

using common::OutputWriter;

// Neither is ever destroyed: their threads live as long as the process.
OutputWriter* out_writer = nullptr;
OutputWriter* err_writer = nullptr;

void drain() {
    if (out_writer != nullptr && !out_writer->drain()) {
        const std::string line = common::message_line("gave up waiting for the reader of 'stdout'");
        if (err_writer != nullptr)
            err_writer->append_at_once(line);
        else
            std::cerr << line << std::flush;
    }
    if (err_writer != nullptr && err_writer != out_writer)
        err_writer->drain();
}

}  // namespace

void buffer_streams() {
    std::cout.flush();
    out_writer = common::buffer_stream(std::cout, STDOUT_FILENO);
    if (out_writer != nullptr && common::lead_to_the_same(STDOUT_FILENO, STDERR_FILENO)) {
        err_writer = out_writer;
        common::write_through(std::cerr, *err_writer);
    } else {
        err_writer = common::buffer_stream(std::cerr, STDERR_FILENO);
    }
    for (OutputWriter* const writer : {out_writer, err_writer}) {
        if (writer != nullptr)
            writer->drop_when_full();
    }
    std::atexit(drain);
}

void describe_dropped_lines(std::function<std::string(std::size_t lines)> description) {
    if (out_writer != nullptr)
        out_writer->describe_dropped(std::move(description));
}

}  // namespace camera
