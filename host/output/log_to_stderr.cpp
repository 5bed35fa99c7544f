#include "host/output/log_to_stderr.hpp"

#include <fmt/format.h>

#include <iostream>

#include "common/text/line_text.hpp"

namespace host {

void log_to_stderr(int level, const std::string& message) {
    std::cerr << fmt::format("<{}>{}\n", level, common::one_line(common::without_line_end(message)))
              << std::flush;
}

}  // namespace host
