#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Fenwa {

/// The places of different keys in a list that only grows. A short list is searched from its
/// beginning, which takes no memory; a long one has a hash map.
class KeyIndex {
  public:
    static constexpr std::size_t none = SIZE_MAX;

    /// @param key_of the member of an entry that is or returns its key.
    /// @returns the place of the key, or `none`.
    template <class Entry, class KeyOf>
    [[nodiscard]] std::size_t find(const std::string& key, const std::vector<Entry>& list,
                                   KeyOf key_of) const {
        if (list.size() > longest_short) {
            const auto found = places_.find(key);
            return found == places_.end() ? none : found->second;
        }
        const auto found = std::ranges::find(list, key, key_of);
        return found == list.end() ? none : static_cast<std::size_t>(found - list.begin());
    }

    /// To be called when the list has become longer.
    template <class Entry, class KeyOf>
    void extend(const std::vector<Entry>& list, KeyOf key_of) {
        if (list.size() <= longest_short)
            return;
        for (std::size_t place = places_.size(); place < list.size(); ++place)
            places_.emplace(std::invoke(key_of, list[place]), place);
    }

  private:
    static constexpr std::size_t longest_short = 16;

    std::unordered_map<std::string, std::size_t> places_;  ///< empty for a short list
};

}  // namespace Fenwa
