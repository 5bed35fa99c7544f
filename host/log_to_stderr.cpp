#include "host/log_to_stderr.hpp"

#include "common/line_text.hpp"

namespace host {

void log_to_stderr(int level, const std::string& message) {
    tool::print_error_line("<" + std::to_string(level) + ">" +
                           std::string(tool::without_line_end(message)));
}

}  // namespace host
