#include "common/events/message.hpp"

#include <iostream>

#include "common/events/journal.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/line_text.hpp"

namespace common {
namespace {

std::string prefix;

}  // namespace

void set_program_name(const std::string& name) {
    prefix = name + ": ";
    open_journal(name);
}

std::string_view message_prefix() noexcept {
    return prefix;
}

std::string message_line(std::string_view sentence) {
    return prefix + one_line(sentence) + '\n';
}

void print_diagnostics(Diagnostics& diagnostics, bool color) {
    if (!uses_journal())
        return diagnostics.print(std::cerr, color);
    for (Diagnostics& other : diagnostics.other_files())
        print_diagnostics(other, color);
    for (const Diagnostics::Entry& entry : diagnostics.take_new()) {
        const bool is_error = entry.severity == Diagnostics::Severity::error;
        print_message(is_error ? Severity::error : Severity::warning,
                      diagnostics.locate(entry.location) +
                          (is_error ? ": error: " : ": warning: ") +
                          with_help(entry.text, entry.help));
    }
}

void print_message(Severity severity, std::string_view sentence, std::string_view block) {
    if (!send_to_journal(severity, sentence, block))
        std::cerr << message_line(sentence) << std::flush;
}

}  // namespace common
