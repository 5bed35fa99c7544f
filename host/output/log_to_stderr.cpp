#include "host/output/log_to_stderr.hpp"

#include "common/text/line_text.hpp"

namespace host {

void log_to_stderr(int level, const std::string& message) {
    common::print_error_line("<" + std::to_string(level) + ">" +
                             std::string(common::without_line_end(message)));
}

}  // namespace host
