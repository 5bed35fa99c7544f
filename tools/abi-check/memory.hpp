#pragma once

#include <array>
#include <cstddef>
#include <functional>

namespace abi_check {

/// Memory in which a constructor is watched: it is larger than any object that is expected, and
/// what is behind the object must stay as it is.
class WatchedMemory {
  public:
    static constexpr std::size_t size = 4096;

    [[nodiscard]] void* place() noexcept { return bytes_.data(); }

    /// Bytes from the start up to the last one that `construct` writes, whatever was there before.
    /// Constructs twice and destroys nothing; the object of the second time stays.
    std::size_t written_by(const std::function<void(void*)>& construct) {
        std::size_t end = 0;
        // A byte that is written with what was there shows up with the other pattern.
        for (const std::byte pattern : {std::byte{0xA5}, std::byte{0x5A}}) {
            bytes_.fill(pattern);
            construct(place());
            for (std::size_t at = size; at > end; --at) {
                if (bytes_[at - 1] != pattern)
                    end = at;
            }
        }
        return end;
    }

  private:
    alignas(std::max_align_t) std::array<std::byte, size> bytes_{};
};

}  // namespace abi_check
