#include "common/text/diagnostics.hpp"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "common/text/json.hpp"
#include "common/text/terminal.hpp"
#include "common/text/utf8.hpp"

namespace common {
namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

/// Code points to each side of a place that are quoted of a long line. A file may be one line, and
/// its mistakes as many as its bytes.
constexpr std::size_t quoted_before = 100;
constexpr std::size_t quoted_behind = 60;

/// One line of a file, taken apart into code points once for all the mistakes that are in it.
class QuotedLine {
  public:
    explicit QuotedLine(const std::string& line) : line_(line) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (starts_code_point(line[i]))
                starts_.push_back(i);
        }
    }

    struct Quote {
        std::string text;
        std::string indent;  ///< brings a caret below the place
    };

    [[nodiscard]] Quote around(std::uint32_t column) const {
        const std::size_t place = std::min<std::size_t>(column == 0 ? 0 : column - 1, size());
        const bool whole = size() <= quoted_before + quoted_behind;
        const std::size_t begin = whole || place < quoted_before ? 0 : place - quoted_before;
        const std::size_t end = whole ? size() : std::min(size(), place + quoted_behind);
        Quote quote;
        if (begin > 0)
            quote = {"…", " "};
        for (std::size_t at = begin; at < end; ++at) {
            const bool is_tab = line_[offset(at)] == '\t';
            const std::string shown =
                is_tab ? "\t" : one_line(line_.substr(offset(at), offset(at + 1) - offset(at)));
            quote.text += shown;
            if (at < place)
                quote.indent += is_tab ? shown : std::string(code_points(shown), ' ');
        }
        if (end < size())
            quote.text += "…";
        return quote;
    }

  private:
    [[nodiscard]] std::size_t size() const { return starts_.size(); }
    [[nodiscard]] std::size_t offset(std::size_t at) const {
        return at < size() ? starts_[at] : line_.size();
    }

    const std::string& line_;
    std::vector<std::size_t> starts_;
};

/// The lines without their ends.
std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (line.ends_with('\r'))
            line.pop_back();
        lines.push_back(std::move(line));
    }
    return lines;
}

}  // namespace

std::string counted(std::uint64_t n, const std::string& noun) {
    return std::to_string(n) + ' ' + noun + (n == 1 ? "" : "s");
}

void Diagnostics::set_source(std::string text) {
    if (text.starts_with(byte_order_mark))
        text.erase(0, byte_order_mark.size());
    source_ = std::move(text);
}

Diagnostics& Diagnostics::other_file(const std::string& file) {
    const auto found = std::ranges::find(other_files_, file, &Diagnostics::file_);
    return found == other_files_.end() ? other_files_.emplace_back(file) : *found;
}

void Diagnostics::take_source(const Diagnostics& other) {
    if (!other.source_.empty())
        source_ = other.source_;
}

void Diagnostics::error(SourceLocation location, std::string text, std::string help) {
    add({Severity::error, location, std::move(text), std::move(help)});
}

void Diagnostics::warning(SourceLocation location, std::string text, std::string help) {
    add({Severity::warning, location, std::move(text), std::move(help)});
}

void Diagnostics::add(Entry entry) {
    entry.text = one_line(shortened(entry.text, max_text_length));
    entry.help = one_line(shortened(entry.help, max_text_length));
    if (known_.count({entry.severity, entry.location, entry.text}) != 0)
        return;
    Count& count = this->count(entry.severity);
    ++count.all;
    if (count.kept == max_kept)
        return;
    ++count.kept;
    known_.emplace(entry.severity, entry.location, entry.text);
    entries_.push_back(std::move(entry));
    if (listener_)
        listener_(entries_.back());
}

std::size_t Diagnostics::not_kept(Severity severity) const noexcept {
    return count(severity).all - count(severity).kept;
}

std::vector<std::string> Diagnostics::sentences(Severity severity) const {
    std::vector<std::string> sentences;
    for (const Entry& entry : entries_) {
        if (entry.severity == severity)
            sentences.push_back(with_help(entry.text, entry.help));
    }
    return sentences;
}

std::string Diagnostics::locate(SourceLocation location) const {
    if (location.line == 0)
        return file_;
    return file_ + ':' + std::to_string(location.line) + ':' + std::to_string(location.column);
}

std::vector<const Diagnostics::Entry*> Diagnostics::take_kept() {
    std::vector<const Entry*> sorted;
    for (; printed_ < entries_.size(); ++printed_)
        sorted.push_back(&entries_[printed_]);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Entry* a, const Entry* b) { return a->location < b->location; });
    return sorted;
}

std::size_t Diagnostics::take_not_kept(Severity severity) noexcept {
    const std::size_t not_kept = this->not_kept(severity);
    return not_kept - std::exchange(count(severity).printed_not_kept, not_kept);
}

std::vector<Diagnostics::Entry> Diagnostics::take_new() {
    std::vector<Entry> entries;
    for (const Entry* entry : take_kept())
        entries.push_back(*entry);
    for (const auto& [severity, noun] :
         {std::pair(Severity::error, "error"), std::pair(Severity::warning, "warning")}) {
        if (const std::size_t more = take_not_kept(severity); more != 0)
            entries.push_back(
                {severity, {}, counted(more, noun) + " more, which are not shown", {}});
        count(severity).printed = count(severity).all;
    }
    return entries;
}

void Diagnostics::print_json(std::ostream& out) {
    for (Diagnostics& other : other_files_)
        other.print_json(out);
    for (const Entry& entry : take_new()) {
        const bool has_place = entry.location.line != 0;
        out << json_line({{"file", file_},
                          {"line", has_place ? Json(entry.location.line) : Json()},
                          {"column", has_place ? Json(entry.location.column) : Json()},
                          {"severity", entry.severity == Severity::error ? "error" : "warning"},
                          {"text", entry.text},
                          {"help", entry.help.empty() ? Json() : Json(entry.help)}})
            << '\n';
    }
}

void Diagnostics::print(std::ostream& out, bool color) {
    for (Diagnostics& other : other_files_)
        other.print(out, color);
    const Palette palette(color);
    const std::vector<const Entry*> kept = take_kept();
    const std::vector<std::string> lines =
        kept.empty() ? std::vector<std::string>() : lines_of(source_);
    std::unique_ptr<const QuotedLine> line;
    std::uint32_t line_number = 0;
    for (const Entry* entry : kept) {
        const bool is_error = entry->severity == Severity::error;
        out << palette.bold << one_line(locate(entry->location)) << ": " << palette.reset
            << (is_error ? palette.red : palette.yellow) << (is_error ? "error: " : "warning: ")
            << palette.reset << entry->text << '\n';
        if (entry->location.line != 0 && entry->location.line <= lines.size()) {
            if (!line || line_number != entry->location.line)
                line =
                    std::make_unique<QuotedLine>(lines[(line_number = entry->location.line) - 1]);
            const QuotedLine::Quote quoted = line->around(entry->location.column);
            out << quoted.text << '\n'
                << quoted.indent << palette.green << '^' << palette.reset << '\n';
        }
        if (!entry->help.empty())
            out << palette.cyan << "help: " << palette.reset << entry->help << '\n';
    }
    print_counts(out);
}

void Diagnostics::print_counts(std::ostream& out) {
    const auto print_line = [&](std::size_t errors, std::size_t warnings, const char* what) {
        if (errors + warnings == 0)
            return;
        out << one_line(file_) << ": ";
        if (errors != 0)
            out << counted(errors, "error") << (warnings != 0 ? ", " : "");
        if (warnings != 0)
            out << counted(warnings, "warning");
        out << what << '\n';
    };
    Count& errors = count(Severity::error);
    Count& warnings = count(Severity::warning);
    const std::size_t errors_not_kept = take_not_kept(Severity::error);
    print_line(errors_not_kept, take_not_kept(Severity::warning), " more, which are not shown");
    const std::size_t new_errors = errors.all - std::exchange(errors.printed, errors.all);
    print_line(new_errors, warnings.all - std::exchange(warnings.printed, warnings.all), "");
}

}  // namespace common
