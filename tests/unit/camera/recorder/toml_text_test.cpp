#include "camera/recorder/toml_text.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <nlohmann/json.hpp>

namespace camera {
namespace {

std::string toml(const char* json) {
    return toml_text(common::Json::parse(json));
}

TEST(TomlText, IsOnOneLine) {
    EXPECT_EQ(toml(R"([3, -0.5, true, "main"])"), R"([3, -0.5, true, "main"])");
    EXPECT_EQ(toml(R"({"d": 36.5})"), "{d = 36.5}");
    EXPECT_EQ(toml(R"([{"a{sv}": {"b c": [], "": 1}}])"), R"([{"a{sv}" = {"b c" = [], "" = 1}}])");
    EXPECT_EQ(toml(R"("a\"\\\n\u0001\u007f")"), R"("a\"\\\n\u0001\u007f")");
}

TEST(TomlText, HasNoIntegerBeyondTheRangeOfToml) {
    EXPECT_EQ(toml_text(std::uint64_t{INT64_MAX}), "9223372036854775807");
    EXPECT_EQ(toml_text(UINT64_MAX), "\"18446744073709551615\"");
}

}  // namespace
}  // namespace camera
