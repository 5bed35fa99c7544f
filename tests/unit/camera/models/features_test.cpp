#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "camera/models/feature_store.hpp"

namespace camera {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

/// A right document, which each test spoils in its way.
json document() {
    return json::parse(R"({"featureGroups":[],"name":"WDR1","niceName":"WDR 1","features":[
        {"info":"Makes it bright.","name":"on1","niceName":"Turn on","requestPayload":"JSON",
         "requestType":"GET","requestURL":"/a?b=on","response":false,"user":["operator"]},
        {"info":"","name":"off1","niceName":"Turn off","requestPayload":"","requestType":"POST",
         "requestURL":"","response":true,"user":[]}]})");
}

std::string mistake(const std::string& text) {
    try {
        (void)feature_from_document(text);
    } catch (const BadDocument& bad) {
        return bad.what();
    }
    return "no mistake";
}

/// The mistake when the member at this JSON pointer has another value.
std::string mistake(const std::string& pointer, const json& value) {
    json spoiled = document();
    spoiled[json::json_pointer(pointer)] = value;
    return mistake(spoiled.dump());
}

/// The mistake when the member is missing.
std::string without(const std::string& pointer, const std::string& key) {
    json spoiled = document();
    spoiled[json::json_pointer(pointer)].erase(key);
    return mistake(spoiled.dump());
}

TEST(FeatureDocument, HasAnIdAndItsButtonsWithTheirRequests) {
    const Feature feature = feature_from_document(document().dump());
    EXPECT_EQ(feature.name, "WDR1");
    EXPECT_EQ(feature.nice_name, "WDR 1");
    ASSERT_EQ(feature.buttons.size(), 2U);
    EXPECT_EQ(feature.buttons[0].name, "on1");
    EXPECT_EQ(feature.buttons[0].nice_name, "Turn on");
    EXPECT_EQ(feature.buttons[0].request.type, "GET");
    EXPECT_EQ(feature.buttons[0].request.url, "/a?b=on");
    EXPECT_EQ(feature.buttons[1].name, "off1");
    EXPECT_EQ(feature.buttons[1].request.type, "POST");
}

TEST(FeatureDocument, MayHaveNoButtonsAndMembersThatNobodyKnows) {
    json bare = document();
    bare["features"] = json::array();
    bare["featureGroups"] = {1, "two", nullptr};
    bare["colour"] = "red";
    EXPECT_EQ(mistake(bare.dump()), "no mistake");
}

TEST(FeatureDocument, ASyntaxErrorIsToldWithItsByte) {
    EXPECT_EQ(mistake(R"({"name":"x",})"),
              "The document is not JSON, see byte 13: syntax error while parsing object key - "
              "unexpected '}'; expected string literal.");
    EXPECT_THAT(mistake(""), HasSubstr("not JSON, see byte 1: "));
    EXPECT_THAT(mistake(document().dump() + "x"),
                HasSubstr("see byte " + std::to_string(document().dump().size() + 1) + ": "));
}

TEST(FeatureDocument, AMemberThatIsMissingIsToldWithItsPlace) {
    for (const std::string key : {"name", "niceName", "featureGroups", "features"})
        EXPECT_EQ(without("", key), "The document has no '" + key + "'.");
    for (const std::string key : {"user", "name", "niceName", "info", "requestType",
                                  "requestPayload", "response", "requestURL"})
        EXPECT_EQ(without("/features/1", key), "'/features/1' has no '" + key + "'.");
}

TEST(FeatureDocument, AWrongMemberIsToldWithItsPlace) {
    struct Spoiled {
        const char* pointer;
        json value;
        const char* sentence;
    };
    for (const auto& [pointer, value, sentence] : std::vector<Spoiled>{
             {"", 5, "The document must be an object, not a number."},
             {"/name", 5, "'/name' must be a string, not a number."},
             {"/niceName", nullptr, "'/niceName' must be a string, not null."},
             {"/featureGroups", json::object(),
              "'/featureGroups' must be an array, not an object."},
             {"/features", "x", "'/features' must be an array, not a string."},
             {"/features/0", json::array(), "'/features/0' must be an object, not an array."},
             {"/features/0/user", "operator", "'/features/0/user' must be an array, not a string."},
             {"/features/0/user/0", 1, "'/features/0/user/0' must be a string, not a number."},
             {"/features/1/response", 0, "'/features/1/response' must be a boolean, not a number."},
             {"/name", "", "'/name' is a name and must not be empty."},
             {"/features/0/name", "", "'/features/0/name' is a name and must not be empty."},
             {"/name", std::string("a\0b", 3),
              "'/name' is a name and must not contain a zero byte."},
             {"/features/1/name", "on1",
              "'/features/1/name' is 'on1', the name of another button."}})
        EXPECT_EQ(mistake(pointer, value), sentence);
    for (const std::string key :
         {"name", "niceName", "info", "requestType", "requestPayload", "requestURL"})
        EXPECT_EQ(mistake("/features/1/" + key, true),
                  "'/features/1/" + key + "' must be a string, not a boolean.");
}

TEST(FeatureDocument, IsOfABoundedLength) {
    json longest = document();
    longest["more"] = "";
    longest["more"] = std::string(max_document_bytes - longest.dump().size(), 'x');
    EXPECT_EQ(mistake(longest.dump()), "no mistake");
    EXPECT_EQ(mistake(longest.dump() + ' '), "The document is longer than 65536 bytes.");
    EXPECT_THAT(mistake(std::string(max_document_bytes, '[')), HasSubstr("nested deeper"));
}

TEST(FeatureDocument, ANumberThatNobodyCanStoreIsRefused) {
    json spoiled = document();
    spoiled["more"] = "NUMBER";
    std::string text = spoiled.dump();
    text.replace(text.find("\"NUMBER\""), 8, "1e999");
    EXPECT_EQ(mistake(text),
              "The document holds a number out of range: number overflow parsing '1e999'.");
}

/// A feature with one button, "on" and the feature's id, that asks for `url`.
AddedFeature feature(const std::string& id, const std::string& language,
                     const std::string& url = "/") {
    return {{id, id, {{"on" + id, "On", {"GET", url}}}}, language, "Language", ":1.9"};
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

TEST(Features, AreOfABoundedNumber) {
    FeatureStore store;
    for (std::size_t i = 0; i < FeatureStore::max_features; ++i)
        store.add(feature("F" + std::to_string(i), "en-us"));
    EXPECT_THROW(store.add(feature("F0", "de-de")), std::length_error);
    EXPECT_NO_THROW(store.add(feature("F0", "en-us"))) << "a replacement takes no more room";
}

}  // namespace
}  // namespace camera
