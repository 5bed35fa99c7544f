#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <type_traits>

#include "framework/shared/debug_data_store.hpp"

namespace {

using Fenwa::debug_data;
using Fenwa::debug_data_blocks;
using Fenwa::DebugValue;
using Fenwa::RegisteredBlock;
using Names = std::vector<std::string>;

static_assert(!std::is_copy_constructible_v<RegisteredBlock>);
static_assert(!std::is_copy_assignable_v<RegisteredBlock>);
static_assert(std::is_nothrow_move_constructible_v<RegisteredBlock>);
static_assert(std::is_same_v<std::variant_alternative_t<0, DebugValue>, std::string>);
static_assert(std::is_same_v<std::variant_alternative_t<2, DebugValue>, float>);

RegisteredBlock listed(const std::string& name) {
    const Fenwa::Block block(name, {});
    return debug_data().register_block(block, {}, {});
}

TEST(DebugDataTest, KeepsTheLastValueOfAKeyInEveryAlternative) {
    EXPECT_EQ(debug_data().get_value("any"), std::nullopt);
    const std::vector<DebugValue> values{std::string("s"), std::int32_t{-3}, 0.1F, 0.1, true};
    for (const DebugValue& value : values) {
        debug_data().set_value("any", value);
        EXPECT_EQ(debug_data().get_value("any"), value);
        EXPECT_EQ(debug_data().get_value("any")->index(), value.index());
    }
    EXPECT_EQ(debug_data().get_value("an"), std::nullopt);
}

TEST(DebugDataTest, TellsItsListenerOfEveryValue) {
    std::vector<std::pair<std::string, DebugValue>> heard;
    Fenwa::set_debug_listener([&heard](const std::string& key, const DebugValue& value) {
        heard.emplace_back(key, value);
    });
    debug_data().set_value("a", 1.0F);
    debug_data().set_value("a", 1.0F);
    debug_data().set_value("b", true);
    Fenwa::set_debug_listener({});
    debug_data().set_value("c", true);
    EXPECT_EQ(heard, (std::vector<std::pair<std::string, DebugValue>>{
                         {"a", 1.0F}, {"a", 1.0F}, {"b", true}}));
}

TEST(RegisteredBlockTest, IsListedWhileItLives) {
    EXPECT_EQ(debug_data_blocks(), Names{});
    {
        const auto first = listed("first");
        { const auto second = listed("second"), third = listed("first"); }
        const RegisteredBlock without_ticket(0);
        const auto again = listed("first");
        EXPECT_EQ(debug_data_blocks(), (Names{"first", "first"}));
    }
    EXPECT_EQ(debug_data_blocks(), Names{});
}

TEST(RegisteredBlockTest, StaysListedWhenMovedOrAssigned) {
    auto to = listed("replaced");
    {
        auto from = std::make_optional(listed("kept"));
        RegisteredBlock moved(std::move(*from));
        from.reset();
        to = std::move(moved);
        EXPECT_EQ(debug_data_blocks(), (Names{"replaced", "kept"}));
    }
    EXPECT_EQ(debug_data_blocks(), (Names{"kept"}));
}

}  // namespace
