#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "fenwa/block_configuration.hpp"

namespace {
std::size_t allocations = 0;
}  // namespace

// Counts allocations, those of the libraries included. Not inlined: an optimising compiler would
// take malloc() and free() for a mismatched pair of new and delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
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

namespace {

TEST(PluginLoadTest, AllocatesForTheTableOfDefaultsAlone) {
    std::size_t before = allocations;
    const Fenwa::BlockConfiguration defaults_of_the_reader{
        {"delta_chg", 1.0},
        {"fake.active", false},
        {"fake.value", 36.0},
    };
    const std::size_t for_the_table = allocations - before;
    ASSERT_GT(for_the_table, 0U);

    before = allocations;
    void* const plugin = dlopen(FENWA_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(plugin, nullptr) << dlerror();
    EXPECT_EQ(allocations - before, for_the_table);
    dlclose(plugin);
}

}  // namespace
