#include <dlfcn.h>
#include <gtest/gtest.h>

#include "fenwa/block_configuration.hpp"
#include "tests/support/allocation_counter.hpp"

namespace {

TEST(PluginLoadTest, AllocatesForTheTableOfDefaultsAlone) {
    std::size_t before = support::allocations();
    const Fenwa::BlockConfiguration defaults_of_the_reader{
        {"delta_chg", 1.0},
        {"fake.active", false},
        {"fake.value", 36.0},
    };
    const std::size_t for_the_table = support::allocations() - before;
    ASSERT_GT(for_the_table, 0U);

    before = support::allocations();
    void* const plugin = dlopen(FENWA_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(plugin, nullptr) << dlerror();
    EXPECT_EQ(support::allocations() - before, for_the_table);
    dlclose(plugin);
}

}  // namespace
