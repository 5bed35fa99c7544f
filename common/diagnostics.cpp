#include "common/diagnostics.hpp"

#include <algorithm>
#include <sstream>

#include "common/terminal.hpp"

namespace tool {
namespace {

/// The bytes of `line` that stand before `column` (in code points), with tabs kept and everything
/// else blank, so that a caret behind them stands below its place.
std::string indent_to(const std::string& line, std::uint32_t column) {
    std::string indent;
    std::uint32_t at = 1;
    for (const char c : line) {
        const bool continues_code_point = (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
        if (continues_code_point)
            continue;
        if (at++ >= column)
            break;
        indent += c == '\t' ? '\t' : ' ';
    }
    return indent;
}

}  // namespace

std::string counted(std::size_t n, const std::string& noun) {
    return std::to_string(n) + ' ' + noun + (n == 1 ? "" : "s");
}

void Diagnostics::set_source(std::string text) {
    lines_.clear();
    std::istringstream stream(std::move(text));
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines_.push_back(std::move(line));
    }
}

void Diagnostics::error(Position where, std::string text, std::string help) {
    add({Severity::error, where, std::move(text), std::move(help)});
}

void Diagnostics::warning(Position where, std::string text, std::string help) {
    add({Severity::warning, where, std::move(text), std::move(help)});
}

void Diagnostics::add(Entry entry) {
    if (std::find(entries_.begin(), entries_.end(), entry) == entries_.end())
        entries_.push_back(std::move(entry));
}

std::size_t Diagnostics::count(Severity severity) const noexcept {
    return static_cast<std::size_t>(
        std::count_if(entries_.begin(), entries_.end(),
                      [severity](const Entry& entry) { return entry.severity == severity; }));
}

std::size_t Diagnostics::errors() const noexcept {
    return count(Severity::error);
}

std::size_t Diagnostics::warnings() const noexcept {
    return count(Severity::warning);
}

std::string Diagnostics::locate(Position where) const {
    if (where.line == 0)
        return file_;
    return file_ + ':' + std::to_string(where.line) + ':' + std::to_string(where.column);
}

void Diagnostics::print(std::ostream& out, bool color) const {
    if (entries_.empty())
        return;
    std::vector<const Entry*> sorted;
    for (const Entry& entry : entries_)
        sorted.push_back(&entry);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Entry* a, const Entry* b) { return a->where < b->where; });

    const Palette palette(color);
    for (const Entry* entry : sorted) {
        const bool is_error = entry->severity == Severity::error;
        out << palette.bold << locate(entry->where) << ": " << palette.reset
            << (is_error ? palette.red : palette.yellow) << (is_error ? "error: " : "warning: ")
            << palette.reset << entry->text << '\n';
        if (entry->where.line != 0 && entry->where.line <= lines_.size()) {
            const std::string& line = lines_[entry->where.line - 1];
            out << line << '\n'
                << indent_to(line, entry->where.column) << palette.green << '^' << palette.reset
                << '\n';
        }
        if (!entry->help.empty())
            out << palette.cyan << "help: " << palette.reset << entry->help << '\n';
    }

    out << file_ << ": ";
    if (errors() != 0)
        out << counted(errors(), "error") << (warnings() != 0 ? ", " : "");
    if (warnings() != 0)
        out << counted(warnings(), "warning");
    out << '\n';
}

}  // namespace tool
