#include "camera/models/feature_store.hpp"

#include <gmock/gmock.h>

#include <stdexcept>

namespace camera {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

/// A feature with one button, "on" and the feature's id, that asks for `url`.
AddedFeature feature(const std::string& id, const std::string& language,
                     const std::string& url = "/") {
    return {{id, id, {{"on" + id, "On", {"GET", url}}}}, language, "Language", ":1.9"};
}

TEST(Features, AreListedByIdWithTheirLanguagesInTheOrderOfArrival) {
    FeatureStore store;
    EXPECT_THAT(store.languages(), IsEmpty());
    store.add(feature("WDR2", "en-us"));
    store.add(feature("WDR1", "en-us"));
    store.add(feature("WDR2", "de-de"));
    EXPECT_THAT(store.languages(), ElementsAre(Pair("WDR2", ElementsAre("en-us", "de-de")),
                                               Pair("WDR1", ElementsAre("en-us"))));
    EXPECT_THAT(store.buttons(), ElementsAre("onWDR2", "onWDR1", "onWDR2"));
}

TEST(Features, AddedAgainAreReplacedWhereTheyAre) {
    FeatureStore store;
    store.add(feature("WDR1", "en-us", "/old"));
    store.add(feature("WDR2", "en-us"));
    store.add(feature("WDR1", "en-us", "/new"));
    EXPECT_THAT(store.languages(), ElementsAre(Pair("WDR1", ElementsAre("en-us")),
                                               Pair("WDR2", ElementsAre("en-us"))));
    ASSERT_NE(store.button("onWDR1"), nullptr);
    EXPECT_EQ(store.button("onWDR1")->request.url, "/new");
}

TEST(Features, AreRemovedOncePerLanguage) {
    FeatureStore store;
    store.add(feature("WDR1", "en-us"));
    store.add(feature("WDR1", "de-de"));
    EXPECT_FALSE(store.remove("WDR1", "fr-fr"));
    EXPECT_FALSE(store.remove("WDR2", "en-us"));
    EXPECT_TRUE(store.remove("WDR1", "en-us"));
    EXPECT_FALSE(store.remove("WDR1", "en-us"));
    EXPECT_THAT(store.languages(), ElementsAre(Pair("WDR1", ElementsAre("de-de"))));
}

TEST(Features, OfTwoButtonsWithOneNameTheEarlierIsTaken) {
    FeatureStore store;
    store.add(feature("WDR1", "en-us", "/english"));
    store.add(feature("WDR1", "de-de", "/german"));
    ASSERT_NE(store.button("onWDR1"), nullptr);
    EXPECT_EQ(store.button("onWDR1")->request.url, "/english");
    EXPECT_TRUE(store.remove("WDR1", "en-us"));
    ASSERT_NE(store.button("onWDR1"), nullptr);
    EXPECT_EQ(store.button("onWDR1")->request.url, "/german");
    EXPECT_EQ(store.button("offWDR1"), nullptr);
}

TEST(Features, AreForgottenTogether) {
    FeatureStore store;
    store.add(feature("WDR1", "en-us"));
    store.drop_all();
    EXPECT_THAT(store.languages(), IsEmpty());
    EXPECT_EQ(store.button("onWDR1"), nullptr);
}

TEST(Features, AreOfABoundedNumber) {
    FeatureStore store;
    for (std::size_t i = 0; i < FeatureStore::max_features; ++i)
        store.add(feature("F" + std::to_string(i), "en-us"));
    EXPECT_THROW(store.add(feature("F0", "de-de")), std::length_error);
    EXPECT_NO_THROW(store.add(feature("F0", "en-us"))) << "a replacement takes no more room";
}

}  // namespace
}  // namespace camera
