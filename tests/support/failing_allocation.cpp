// A library for LD_PRELOAD. The allocation whose number is in FENWA_FAILING_ALLOCATION, from 1,
// gets no memory; the number of all goes into the file FENWA_ALLOCATIONS when the process ends.
#include <sys/mman.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace {

/// In the order of their time, those of the processes that this one forks included.
std::atomic<unsigned long>& allocations() {
    static void* const shared = mmap(nullptr, sizeof(std::atomic<unsigned long>),
                                     PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        std::abort();
    return *static_cast<std::atomic<unsigned long>*>(shared);
}

void* allocate(std::size_t size) {
    static const char* const text = std::getenv("FENWA_FAILING_ALLOCATION");
    static const unsigned long failing = text == nullptr ? 0 : std::strtoul(text, nullptr, 10);
    if (++allocations() == failing) {
        if (const std::new_handler handler = std::get_new_handler())
            handler();
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

[[gnu::destructor]] void report() {
    const char* const name = std::getenv("FENWA_ALLOCATIONS");
    if (name == nullptr)
        return;
    if (std::FILE* const file = std::fopen(name, "w")) {
        std::fprintf(file, "%lu\n", allocations().load());
        std::fclose(file);
    }
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    return allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
