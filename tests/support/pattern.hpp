#pragma once

#include <memory>
#include <string>
#include <vector>

namespace test {

/// The text of a match, then that of each group; a group that takes no part is empty.
using Groups = std::vector<std::string>;

/// A regular expression as of ECMAScript. <regex> itself takes a compiler longer than a test does,
/// so it stands in one source.
class Pattern {
  public:
    explicit Pattern(const std::string& expression);

    /// The text with `replacement` in place of each match; "$1" is its first group.
    [[nodiscard]] std::string replace(const std::string& text,
                                      const std::string& replacement) const;
    /// The groups if the pattern matches the whole text; empty if not.
    [[nodiscard]] Groups match(const std::string& text) const;
    /// The groups of the first match in the text; empty if there is none.
    [[nodiscard]] Groups find(const std::string& text) const;
    /// The groups of each match in the text.
    [[nodiscard]] std::vector<Groups> find_all(const std::string& text) const;

  private:
    struct Regex;
    std::shared_ptr<const Regex> regex_;
};

}  // namespace test
