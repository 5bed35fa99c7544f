#include "src/frame/verdict_settings.hpp"

#include <gtest/gtest.h>

#include "tests/support/settings.hpp"

namespace {

using support::Settings;
using Strings = std::vector<std::string>;

TEST(VerdictSettingsTest, NameTheVerdictAndTheTerminatedInputWithTheVerdictAsItsDefault) {
    const auto settings = blocks::verdict_settings("light_ok", "light_in", true);
    EXPECT_EQ(support::settings_of(settings),
              (Settings{{"light_ok", true},
                        {"termination_cfg.inports", Strings{"light_in"}},
                        {"termination_cfg.types", Strings{"/prefix/well-known.b/bool"}},
                        {"termination_cfg.light_in_def", true}}));
}

TEST(VerdictSettingsTest, HoldANegativeVerdictInBothPlaces) {
    const auto settings = blocks::verdict_settings("light_ok", "light_in", false);
    EXPECT_FALSE(settings.getBool("light_ok"));
    EXPECT_FALSE(settings.getBool("termination_cfg.light_in_def"));
}

TEST(VerdictSettingsTest, GiveListsOfOneThatReadAsStringsToo) {
    const auto settings = blocks::verdict_settings("light_ok", "light_in", true);
    EXPECT_EQ(settings.getString("termination_cfg.inports"), "light_in");
    EXPECT_EQ(settings.getString("termination_cfg.types"), "/prefix/well-known.b/bool");
}

}  // namespace
