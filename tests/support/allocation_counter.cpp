#include "tests/support/allocation_counter.hpp"

#include <cstdlib>
#include <new>

namespace {
thread_local std::size_t count = 0;
}  // namespace

namespace support {

std::size_t allocations() noexcept {
    return count;
}

}  // namespace support

// Not inlined: an optimising compiler would take malloc() and free() for a mismatched pair of new
// and delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++count;
    if (void* const memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
