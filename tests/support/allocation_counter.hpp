#pragma once

#include <cstddef>

namespace support {

/// The allocations of the calling thread in this program and its libraries, by `operator new`. A
/// program that asks has the `operator new` of allocation_counter.cpp.
[[nodiscard]] std::size_t allocations() noexcept;

}  // namespace support
