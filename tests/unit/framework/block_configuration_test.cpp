#include "fenwa/block_configuration.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "tests/support/configuration_recorder.hpp"

namespace {

using Fenwa::BlockConfiguration;
using Fenwa::ConfigurationAccess;
using Fenwa::ConfigurationError;
using Entry = BlockConfiguration::KeyValue;
using Keys = std::vector<std::string>;

constexpr std::int64_t beyond_int = std::int64_t{std::numeric_limits<int>::max()} + 1;

// A bare C string would silently become a bool.
static_assert(!std::is_constructible_v<Entry, const char*, const char*>);
static_assert(!std::is_constructible_v<Entry, std::string, char*>);
static_assert(std::is_constructible_v<Entry, const char*, bool>);
static_assert(std::is_constructible_v<Entry, std::string, double>);
static_assert(std::is_constructible_v<Entry, const char*, std::initializer_list<const char*>>);

/// A configuration with one key of every kind.
const BlockConfiguration every_kind{{"bool", true},
                                    {"integer", 7},
                                    {"float", 2.5},
                                    {"string", std::string("text")},
                                    {"list of one", {"only"}},
                                    {"list", {"a", "b"}},
                                    {"empty list", std::vector<std::string>{}}};

/// Whether the getter gives a value, and not an error, for every key of `every_kind`.
template <class Getter>
Keys accepted_by(Getter get) {
    Keys accepted;
    for (const Entry& entry : ConfigurationAccess::entries(every_kind)) {
        try {
            get(entry.key());
            accepted.push_back(entry.key());
        } catch (const ConfigurationError& error) {
            EXPECT_EQ(error.key(), entry.key());
            EXPECT_FALSE(error.missing());
        }
    }
    return accepted;
}

/// Whether `every_kind` gives values for these keys only, with and without a default.
template <class Getter, class GetterWithDefault>
void expect_accepted(Getter get, GetterWithDefault get_or_default, const Keys& keys) {
    EXPECT_EQ(accepted_by(get), keys);
    EXPECT_EQ(accepted_by(get_or_default), keys);
}

TEST(BlockConfigurationTest, ReadsEachKindOnlyAsItselfAlsoWhenADefaultIsGiven) {
    const auto& config = every_kind;
    expect_accepted([&](const auto& key) { (void)config.getBool(key); },
                    [&](const auto& key) { (void)config.getBool(key, false); }, {"bool"});
    expect_accepted([&](const auto& key) { (void)config.getInt(key); },
                    [&](const auto& key) { (void)config.getInt(key, 1); }, {"integer"});
    expect_accepted([&](const auto& key) { (void)config.getFloat(key); },
                    [&](const auto& key) { (void)config.getFloat(key, 1.0F); },
                    {"integer", "float"});
    expect_accepted([&](const auto& key) { (void)config.getDouble(key); },
                    [&](const auto& key) { (void)config.getDouble(key, 1.0); },
                    {"integer", "float"});
    expect_accepted([&](const auto& key) { (void)config.getString(key); },
                    [&](const auto& key) { (void)config.getString(key, "other"); },
                    {"string", "list of one"});
}

TEST(BlockConfigurationTest, GivesTheValuesOfItsKeysRatherThanDefaults) {
    const auto& config = every_kind;
    EXPECT_TRUE(config.getBool("bool") && config.getBool("bool", false));
    for (const int value : {config.getInt("integer"), config.getInt("integer", 1)})
        EXPECT_EQ(value, 7);
    for (const float value : {config.getFloat("float"), config.getFloat("float", 1.0F)})
        EXPECT_EQ(value, 2.5F);
    for (const double value : {config.getDouble("float"), config.getDouble("float", 1.0)})
        EXPECT_EQ(value, 2.5);
    for (const auto& value : {config.getString("string"), config.getString("string", "other")})
        EXPECT_EQ(value, "text");
    EXPECT_EQ(config.getString("list of one"), "only");
    EXPECT_EQ(config.getFloat("integer"), 7.0F);
    EXPECT_EQ(config.getDouble("integer"), 7.0);
}

TEST(BlockConfigurationTest, GivesTheDefaultOfAMissingKey) {
    const BlockConfiguration empty;
    EXPECT_TRUE(empty.getBool("key", true));
    EXPECT_FALSE(empty.getBool("key", false));
    EXPECT_EQ(empty.getInt("key", -3), -3);
    EXPECT_EQ(empty.getFloat("key", 1.5F), 1.5F);
    EXPECT_EQ(empty.getDouble("key", 0.1), 0.1);
    EXPECT_EQ(empty.getString("key", "fallback"), "fallback");
}

TEST(BlockConfigurationTest, RefusesIntegersThatDoNotFit) {
    const BlockConfiguration config{{"largest", std::numeric_limits<int>::max()},
                                    {"smallest", std::numeric_limits<int>::min()},
                                    {"too large", beyond_int},
                                    {"too small", -beyond_int - 1}};
    EXPECT_EQ(config.getInt("largest"), std::numeric_limits<int>::max());
    EXPECT_EQ(config.getInt("smallest"), std::numeric_limits<int>::min());
    EXPECT_THROW((void)config.getInt("too large"), ConfigurationError);
    EXPECT_THROW((void)config.getInt("too small"), ConfigurationError);
    EXPECT_EQ(config.getDouble("too large"), 2147483648.0);
    EXPECT_EQ(config.getFloat("too small"), -2147483648.0F);
}

TEST(BlockConfigurationTest, RoundsToTheNearestFloat) {
    const BlockConfiguration config{{"limit", 36.6}, {"not a number", std::nan("")}};
    EXPECT_EQ(config.getFloat("limit"), 36.6F);
    EXPECT_EQ(static_cast<double>(config.getFloat("limit")), 36.599998474121094);
    EXPECT_EQ(config.getDouble("limit"), 36.6);
    EXPECT_TRUE(std::isnan(config.getFloat("not a number")));
}

TEST(BlockConfigurationTest, LooksKeysUpWhole) {
    const BlockConfiguration config{{"fake.active", true}, {"", 3}};
    EXPECT_THROW((void)config.getBool("fake"), ConfigurationError);
    EXPECT_THROW((void)config.getBool("Fake.active"), ConfigurationError);
    EXPECT_EQ(config.getInt(""), 3);
}

TEST(BlockConfigurationTest, CountsTheLastOfEqualKeysInThePlaceOfTheFirst) {
    const std::vector<Entry> given{{"a", 1}, {"b", 2}, {"a", true}};
    for (const auto& config :
         {BlockConfiguration{given[0], given[1], given[2]}, BlockConfiguration(given)}) {
        const auto& entries = ConfigurationAccess::entries(config);
        ASSERT_EQ(entries.size(), 2U);
        EXPECT_EQ(entries[0].key(), "a");
        EXPECT_EQ(entries[0].value(), BlockConfiguration::Value(true));
        EXPECT_EQ(entries[1].key(), "b");
        EXPECT_EQ(entries[1].value(), BlockConfiguration::Value(std::int64_t{2}));
    }
}

TEST(BlockConfigurationTest, IsEmptyOnceItHasBeenMovedFrom) {
    BlockConfiguration from{{"a", 1}};
    const BlockConfiguration to = std::move(from);
    // NOLINTBEGIN(bugprone-use-after-move): that this is defined is the point
    EXPECT_EQ(from.getInt("a", 7), 7);
    EXPECT_THROW((void)from.getString("a"), ConfigurationError);
    EXPECT_EQ(ConfigurationAccess::find(from, "a"), nullptr);
    EXPECT_TRUE(ConfigurationAccess::entries(from).empty());
    EXPECT_TRUE(ConfigurationAccess::entries(from + from).empty());
    EXPECT_EQ((from + to).getInt("a") + (to + from).getInt("a"), 2);
    EXPECT_TRUE(ConfigurationAccess::entries(ConfigurationAccess::observed(from, nullptr)).empty());
    from = {{"b", 2}};
    EXPECT_EQ(from.getInt("b"), 2);
    // NOLINTEND(bugprone-use-after-move)
}

TEST(BlockConfigurationTest, LetsTheRightSideWin) {
    const BlockConfiguration defaults{{"kept", 1.0}, {"changed", 2.0}};
    const BlockConfiguration given{{"changed", std::string("now a string")}, {"added", true}};
    const BlockConfiguration both = defaults + given;
    EXPECT_EQ(both.getDouble("kept"), 1.0);
    EXPECT_EQ(both.getString("changed"), "now a string");
    EXPECT_TRUE(both.getBool("added"));
    Keys keys;
    for (const Entry& entry : ConfigurationAccess::entries(both))
        keys.push_back(entry.key());
    EXPECT_EQ(keys, (Keys{"kept", "changed", "added"}));
    // Neither side has changed.
    EXPECT_EQ(defaults.getDouble("changed"), 2.0);
    EXPECT_THROW((void)defaults.getBool("added"), ConfigurationError);
    EXPECT_THROW((void)given.getDouble("kept"), ConfigurationError);
    EXPECT_EQ((defaults + BlockConfiguration()).getDouble("changed"), 2.0);
    EXPECT_EQ((BlockConfiguration() + defaults).getDouble("changed"), 2.0);
}

class ObservedConfigurationTest : public testing::Test {
  protected:
    using Recorder = support::ConfigurationRecorder;
    std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
};

TEST_F(ObservedConfigurationTest, TellsOfEveryReadWithItsTypeAndDefault) {
    const auto config = ConfigurationAccess::observed({{"present", 1}}, recorder);
    EXPECT_EQ(config.getInt("present"), 1);
    (void)config.getBool("absent", true);
    (void)config.getFloat("present", 0.5F);
    (void)config.getDouble("present");
    EXPECT_THROW((void)config.getString("present"), ConfigurationError);
    EXPECT_EQ(recorder->reads,
              (Keys{"int present", "bool absent or a default", "float present or a default",
                    "double present", "string present"}));
}

TEST_F(ObservedConfigurationTest, HandsOnDefaultsAndWhatIsFoundWhateverItsType) {
    using Value = BlockConfiguration::Value;
    using Read = std::pair<std::optional<Value>, std::optional<Value>>;
    struct Observer : Fenwa::ConfigurationObserver {
        void on_read(const Fenwa::KeyRead& read) override {
            reads.emplace_back(read.fallback, read.found);
        }
        std::optional<Value> on_error(const ConfigurationError& /*error*/) override {
            return Value();
        }
        std::vector<Read> reads;
    };
    const auto observer = std::make_shared<Observer>();
    const auto config = BlockConfiguration{{"a", 5}, {"b", true}} +
                        ConfigurationAccess::observed({{"b", false}}, observer);
    (void)config.getDouble("a", 0.5);
    (void)config.getString("b");
    (void)config.getInt("c", 7);
    (void)config.getFloat("d", 0.5F);
    (void)config.getString("e", "x");
    EXPECT_EQ(observer->reads, (std::vector<Read>{{Value(0.5), Value(std::int64_t{5})},
                                                  {std::nullopt, Value(false)},
                                                  {Value(std::int64_t{7}), std::nullopt},
                                                  {Value(0.5), std::nullopt},
                                                  {Value(std::string("x")), std::nullopt}}));
}

TEST_F(ObservedConfigurationTest, GivesTheValueOfTheObserverInsteadOfAnErrorOrElseZero) {
    recorder->instead = std::int64_t{7};
    const auto config = ConfigurationAccess::observed({{"key", true}}, recorder);
    EXPECT_EQ(config.getInt("key"), 7);
    EXPECT_EQ(config.getDouble("absent"), 7.0);
    EXPECT_EQ(config.getString("absent"), "");
    EXPECT_FALSE(config.getBool("absent"));
}

TEST_F(ObservedConfigurationTest, StaysObservedWhenCombined) {
    const auto config = ConfigurationAccess::observed({{"a", 1}}, recorder);
    (void)(BlockConfiguration{{"b", 2}} + config).getInt("b");
    (void)(config + BlockConfiguration{{"b", 2}}).getInt("b");
    EXPECT_EQ(recorder->reads, (Keys{"int b", "int b"}));
    const auto other = std::make_shared<Recorder>();
    (void)(config + ConfigurationAccess::observed({}, other)).getInt("a");
    EXPECT_EQ(recorder->reads.size(), 2U) << "the right side's observer counts";
    EXPECT_EQ(other->reads, (Keys{"int a"}));
}

TEST_F(ObservedConfigurationTest, LeavesTheOriginalUnobserved) {
    const BlockConfiguration original{{"a", 1}};
    const auto observed = ConfigurationAccess::observed(original, recorder);
    (void)original.getInt("a");
    EXPECT_EQ(recorder->reads, Keys{});
    EXPECT_EQ(observed.getInt("a"), 1);
}

}  // namespace
