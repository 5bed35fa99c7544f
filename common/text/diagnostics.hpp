#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "common/text/line_text.hpp"
#include "common/text/suggestion.hpp"

namespace common {

/// A place in a text file, both counted from 1, columns in code points; line 0 is "the whole file".
struct SourceLocation {
    std::uint32_t line = 0;
    std::uint32_t column = 0;

    friend auto operator<=>(const SourceLocation&, const SourceLocation&) = default;
};

/// "1 error", "2 errors".
[[nodiscard]] std::string counted(std::uint64_t n, const std::string& noun);

/// Collects the mistakes of one text file and prints them in a compiler's form, each line made safe
/// by `one_line`, but for the tabs of quoted ones:
///
///     graph.toml:3:8: error: unknown block type 'TemperaturReader'
///     type = "TemperaturReader"
///            ^
///     help: did you mean 'TemperatureReader'?
///
/// A file may hold as many mistakes as it has bytes: the first errors and the first warnings are
/// kept, and the others are counted.
class Diagnostics {
  public:
    enum class Severity { error, warning };

    /// One mistake, as it is printed.
    struct Entry {
        Severity severity;
        SourceLocation location;
        std::string text;
        std::string help;
    };

    static constexpr std::size_t max_kept = 1000;         ///< errors, and as many warnings
    static constexpr std::size_t max_text_length = 2000;  ///< of each; in bytes

    /// `file` is the name as the user typed it.
    explicit Diagnostics(std::string file) : file_(std::move(file)) {}

    /// The text from which the quoted lines are taken; without it none are quoted.
    void set_source(std::string text);
    /// The mistakes of another file to which this one leads, by its name; owned by this object.
    /// They are printed before the mistakes of this file, and not counted among them.
    [[nodiscard]] Diagnostics& other_file(const std::string& file);
    [[nodiscard]] std::list<Diagnostics>& other_files() noexcept { return other_files_; }
    /// Takes the text of another, where it has one: the file was read again.
    void take_source(const Diagnostics& other);

    /// Adds a mistake. `help` is the sentence after "help: ", empty for none. A mistake with the
    /// same severity, place and text is added once.
    void error(SourceLocation location, std::string text, std::string help = {});
    void warning(SourceLocation location, std::string text, std::string help = {});
    /// Adds one that another has collected.
    void add(Entry entry);
    /// Counts mistakes that another has not kept.
    void count_more(Severity severity, std::size_t n) noexcept { count(severity).all += n; }

    /// Calls `listener` for each mistake that is kept from here on.
    void listen(std::function<void(const Entry&)> listener) { listener_ = std::move(listener); }

    /// For all the unknown names of the file together.
    [[nodiscard]] Suggester& suggester() noexcept { return suggester_; }
    [[nodiscard]] std::string did_you_mean(std::string_view typed,
                                           const std::vector<std::string>& candidates) {
        return suggester_.did_you_mean(typed, candidates);
    }

    /// All of them, kept or not.
    [[nodiscard]] std::size_t errors() const noexcept { return count(Severity::error).all; }
    [[nodiscard]] std::size_t warnings() const noexcept { return count(Severity::warning).all; }
    /// How many of them are not kept.
    [[nodiscard]] std::size_t not_kept(Severity severity) const noexcept;
    /// Each kept mistake as a sentence, with its help after a semicolon, in the order of addition.
    [[nodiscard]] std::vector<std::string> sentences(Severity severity) const;
    [[nodiscard]] const std::string& file() const noexcept { return file_; }

    /// "FILE:LINE:COLUMN" of a place, "FILE" for the whole file.
    [[nodiscard]] std::string locate(SourceLocation location) const;

    /// Prints the mistakes that were added since the last call, in file order, then the number of
    /// those that are not kept, then a line with the count; nothing if there is no new one. Quotes
    /// the part around the place of a very long line.
    void print(std::ostream& out, bool color);

    /// The same for programs, one JSON object a line, without the count:
    ///
    ///     {"file", "line", "column", "severity": "error" | "warning", "text", "help"}
    ///
    /// Line and column are null for the whole file, the help is null where there is none.
    void print_json(std::ostream& out);

    /// The mistakes that were added since the last call of this function or of one that prints, in
    /// file order; the last one of a severity may tell how many are not kept.
    [[nodiscard]] std::vector<Entry> take_new();

  private:
    struct Count {
        std::size_t all = 0;
        std::size_t kept = 0;
        std::size_t printed = 0;           ///< of all
        std::size_t printed_not_kept = 0;  ///< of the ones that are not kept
    };

    [[nodiscard]] const Count& count(Severity severity) const noexcept {
        return counts_[static_cast<std::size_t>(severity)];
    }
    [[nodiscard]] Count& count(Severity severity) noexcept {
        return counts_[static_cast<std::size_t>(severity)];
    }
    [[nodiscard]] std::vector<const Entry*> take_kept();
    [[nodiscard]] std::size_t take_not_kept(Severity severity) noexcept;
    void print_counts(std::ostream& out);

    std::string file_;
    std::list<Diagnostics> other_files_;
    std::string source_;
    std::vector<Entry> entries_;
    std::set<std::tuple<Severity, SourceLocation, std::string>> known_;
    std::size_t printed_ = 0;  ///< the entries before this one have been printed
    std::array<Count, 2> counts_;
    Suggester suggester_;
    std::function<void(const Entry&)> listener_;
};

}  // namespace common
