#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace Fenwa {

/// The places of different keys in a list that only grows. A short list is searched from its
/// beginning, which takes no memory; a long one has a hash map.
class KeyIndex {
  public:
    static constexpr std::size_t none = SIZE_MAX;

    /// @param size of the list.
    /// @param key_at returns the key at a place.
    /// @returns the place of the key, or `none`.
    template <class KeyAt>
    [[nodiscard]] std::size_t find(const std::string& key, std::size_t size, KeyAt&& key_at) const {
        if (size > longest_short) {
            const auto found = places_.find(key);
            return found == places_.end() ? none : found->second;
        }
        std::size_t place = 0;
        while (place < size && key_at(place) != key)
            ++place;
        return place < size ? place : none;
    }

    /// To be called when the list has become longer.
    template <class KeyAt>
    void extend(std::size_t size, KeyAt&& key_at) {
        for (std::size_t place = places_.size(); size > longest_short && place < size; ++place)
            places_.emplace(key_at(place), place);
    }

  private:
    static constexpr std::size_t longest_short = 16;

    std::unordered_map<std::string, std::size_t> places_;  ///< empty for a short list
};

}  // namespace Fenwa
