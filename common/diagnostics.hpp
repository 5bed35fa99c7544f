#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "common/line_text.hpp"

namespace tool {

/// A place in a text file, both counted from 1, columns in code points; line 0 is "the whole file".
struct Position {
    std::uint32_t line = 0;
    std::uint32_t column = 0;

    friend auto operator<=>(const Position&, const Position&) = default;
};

/// "1 error", "2 errors".
[[nodiscard]] std::string counted(std::size_t n, const std::string& noun);

/// Collects the mistakes of one text file and prints them in a compiler's form, each line made safe
/// by `one_line`, but for the tabs of quoted ones:
///
///     graph.toml:3:8: error: unknown block type 'TemperaturReader'
///     type = "TemperaturReader"
///            ^
///     help: did you mean 'TemperatureReader'?
class Diagnostics {
  public:
    enum class Severity { error, warning };

    /// `file` is the name as the user typed it.
    explicit Diagnostics(std::string file) : file_(std::move(file)) {}

    /// The text from which the quoted lines are taken; without it none are quoted.
    void set_source(std::string text);
    /// Takes the text of another, where it has one: the file was read again.
    void take_source(const Diagnostics& other);

    /// Adds a mistake. `help` is the sentence behind "help: ", empty for none. What is already
    /// there with the same severity, place and text is not added twice.
    void error(Position where, std::string text, std::string help = {});
    void warning(Position where, std::string text, std::string help = {});

    [[nodiscard]] std::size_t errors() const noexcept;
    [[nodiscard]] std::size_t warnings() const noexcept;
    /// Each error as a sentence, its help behind a semicolon, in the order in which they were
    /// added.
    [[nodiscard]] std::vector<std::string> error_sentences() const;
    [[nodiscard]] const std::string& file() const noexcept { return file_; }

    /// "FILE:LINE:COLUMN" of a place, "FILE" for the whole file.
    [[nodiscard]] std::string locate(Position where) const;

    /// What was added since the last time, in file order, then a line with the count. Prints
    /// nothing where there is nothing new. Of a very long line only the part around the place is
    /// quoted.
    void print(std::ostream& out, bool color);

  private:
    struct Entry {
        Severity severity;
        Position where;
        std::string text;
        std::string help;
    };

    void add(Entry entry);
    [[nodiscard]] std::size_t count(Severity severity) const noexcept;

    std::string file_;
    std::vector<std::string> lines_;
    std::vector<Entry> entries_;
    std::set<std::tuple<Severity, Position, std::string>> known_;
    std::size_t printed_ = 0;  ///< the entries before this one have been printed
};

}  // namespace tool
