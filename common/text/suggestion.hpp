#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace common {

/// Names the candidate nearest to a typed name, with one limit of the work for all its questions: a
/// text from elsewhere may hold thousands of unknown names, and each is compared with thousands of
/// known ones. One thread at a time.
class Suggester {
  public:
    /// "did you mean 'NAME'?" with the candidate nearest to `typed` (edit distance, transpositions
    /// count as one), or an empty string where none is near: at most a third of the letters may
    /// differ. Empty also where the candidates that are left cost more than the work that is left.
    [[nodiscard]] std::string did_you_mean(std::string_view typed,
                                           const std::vector<std::string>& candidates);

  private:
    /// In comparisons of two letters: below a tenth of a second.
    static constexpr std::size_t all_work = 20'000'000;

    std::size_t work_left_ = all_work;
};

/// The same for a single question.
[[nodiscard]] std::string did_you_mean(std::string_view typed,
                                       const std::vector<std::string>& candidates);

/// A sentence with its help after a semicolon; alone if the help is empty.
[[nodiscard]] std::string with_help(std::string sentence, std::string_view help);

}  // namespace common
