#include "common/suggestion.hpp"

#include <algorithm>

namespace tool {
namespace {

/// Optimal string alignment distance: insert, delete, replace and swap of neighbours cost one each.
std::size_t edit_distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> cost(a.size() + 1,
                                               std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1,
                                   cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0U : 1U)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    }
    return cost[a.size()][b.size()];
}

}  // namespace

std::string did_you_mean(std::string_view typed, const std::vector<std::string>& candidates) {
    // The table grows with the product of both lengths; a name that long is no typing mistake.
    constexpr std::size_t longest = 256;
    const std::string* nearest = nullptr;
    std::size_t least = 0;
    for (const std::string& candidate : candidates) {
        const std::size_t longer = std::max(typed.size(), candidate.size());
        if (longer > longest)
            continue;
        const std::size_t distance = edit_distance(typed, candidate);
        if (distance * 3 <= longer && (nearest == nullptr || distance < least)) {
            nearest = &candidate;
            least = distance;
        }
    }
    return nearest == nullptr ? std::string{} : "did you mean '" + *nearest + "'?";
}

}  // namespace tool
