#include "common/text/suggestion.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace common {
namespace {

/// The work grows with the product of both lengths; a longer name is not a typing mistake.
constexpr std::size_t longest_name = 256;

/// Optimal string alignment distance: insert, delete, replace and swap of neighbours cost one each.
/// @param work_left reduced by the cost.
/// @returns `limit` + 1, early, where it is greater than `limit`, or where no work is left.
std::size_t edit_distance(std::string_view a, std::string_view b, std::size_t limit,
                          std::size_t& work_left) {
    if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > limit)
        return limit + 1;
    // The last three rows of the table of costs: of a's first i letters against b's first j.
    std::array<std::array<std::size_t, longest_name + 1>, 3> rows;
    for (std::size_t j = 0; j <= b.size(); ++j)
        rows[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        if (work_left < b.size())
            work_left = 0;
        if (work_left == 0)
            return limit + 1;
        work_left -= b.size();
        auto& row = rows[i % 3];
        const auto& above = rows[(i - 1) % 3];
        row[0] = i;
        std::size_t least = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min(
                {above[j] + 1, row[j - 1] + 1, above[j - 1] + (a[i - 1] == b[j - 1] ? 0U : 1U)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], rows[(i - 2) % 3][j - 2] + 1);
            least = std::min(least, row[j]);
        }
        // No later row has less: a step down costs one at most, a swap over two of them one too.
        if (least > limit)
            return limit + 1;
    }
    return std::min(rows[a.size() % 3][b.size()], limit + 1);
}

}  // namespace

std::string Suggester::did_you_mean(std::string_view typed,
                                    const std::vector<std::string>& candidates) {
    const std::string* nearest = nullptr;
    std::size_t least = 0;
    for (const std::string& candidate : candidates) {
        if (work_left_ == 0)
            return {};
        --work_left_;
        const std::size_t longer = std::max(typed.size(), candidate.size());
        if (longer > longest_name || (nearest != nullptr && least == 0))
            continue;
        const std::size_t limit = nearest == nullptr ? longer / 3 : std::min(longer / 3, least - 1);
        const std::size_t distance = edit_distance(typed, candidate, limit, work_left_);
        if (distance <= limit) {
            nearest = &candidate;
            least = distance;
        }
    }
    return nearest == nullptr ? std::string{} : fmt::format("did you mean '{}'?", *nearest);
}

std::string did_you_mean(std::string_view typed, const std::vector<std::string>& candidates) {
    return Suggester().did_you_mean(typed, candidates);
}

std::string with_help(std::string sentence, std::string_view help) {
    if (!help.empty())
        sentence.append("; ").append(help);
    return sentence;
}

}  // namespace common
