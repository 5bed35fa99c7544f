#include "framework/shared/block_registry.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

struct Nothing : Fenwa::Block {
    using Block::Block;
};

TEST(BlockRegistryTest, KeepsNamesInTheOrderOfRegistration) {
    Fenwa::BlockRegistry registry;
    registry.register_block<Nothing>("b");
    registry.register_block<Nothing>("a");
    registry.register_block<Nothing>("");
    EXPECT_EQ(registry.type_names(), (std::vector<std::string>{"b", "a", ""}));
}

TEST(BlockRegistryTest, FindsAFactoryByItsWholeName) {
    Fenwa::BlockRegistry registry;
    registry.register_block<Nothing>("Nothing");
    EXPECT_EQ(registry.find("Noth"), nullptr);
    EXPECT_EQ(registry.find("nothing"), nullptr);
    const Fenwa::InitTools tools(nullptr);
    ASSERT_NE(registry.find("Nothing"), nullptr);
    EXPECT_EQ((*registry.find("Nothing"))("one", {}, tools)->get_name(), "one");
}

TEST(BlockRegistryTest, RefusesANameThatIsTaken) {
    Fenwa::BlockRegistry registry;
    registry.register_block<Nothing>("Nothing");
    try {
        registry.register_block<Nothing>("Nothing");
        FAIL() << "registered twice";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "the block type 'Nothing' is registered already");
    }
    EXPECT_EQ(registry.type_names().size(), 1U);
}

}  // namespace
