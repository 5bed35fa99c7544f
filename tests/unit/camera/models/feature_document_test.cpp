#include "camera/models/feature_document.hpp"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

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
        (void)read_feature(text);
    } catch (const BadDocument& bad) {
        return bad.what();
    }
    return "no mistake";
}

/// What is wrong when the member at this JSON pointer is another value.
std::string mistake(const std::string& pointer, const json& value) {
    json spoiled = document();
    spoiled[json::json_pointer(pointer)] = value;
    return mistake(spoiled.dump());
}

/// What is wrong when the member is not there.
std::string without(const std::string& pointer, const std::string& key) {
    json spoiled = document();
    spoiled[json::json_pointer(pointer)].erase(key);
    return mistake(spoiled.dump());
}

TEST(FeatureDocument, HasAnIdAndItsButtonsWithTheirRequests) {
    const Feature feature = read_feature(document().dump());
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

TEST(FeatureDocument, AMemberOfAnotherKindIsToldWithItsPlace) {
    EXPECT_EQ(mistake("5"), "The document must be an object, not a number.");
    EXPECT_EQ(mistake("/name", 5), "'/name' must be a string, not a number.");
    EXPECT_EQ(mistake("/niceName", nullptr), "'/niceName' must be a string, not null.");
    EXPECT_EQ(mistake("/featureGroups", json::object()),
              "'/featureGroups' must be an array, not an object.");
    EXPECT_EQ(mistake("/features", "x"), "'/features' must be an array, not a string.");
    EXPECT_EQ(mistake("/features/0", json::array()),
              "'/features/0' must be an object, not an array.");
    EXPECT_EQ(mistake("/features/0/user", "operator"),
              "'/features/0/user' must be an array, not a string.");
    EXPECT_EQ(mistake("/features/0/user/0", 1),
              "'/features/0/user/0' must be a string, not a number.");
    EXPECT_EQ(mistake("/features/1/response", 0),
              "'/features/1/response' must be a boolean, not a number.");
    for (const std::string key :
         {"name", "niceName", "info", "requestType", "requestPayload", "requestURL"})
        EXPECT_EQ(mistake("/features/1/" + key, true),
                  "'/features/1/" + key + "' must be a string, not a boolean.");
}

TEST(FeatureDocument, NamesAreUsableAndTellButtonsApart) {
    EXPECT_EQ(mistake("/name", ""), "'/name' is a name and must not be empty.");
    EXPECT_EQ(mistake("/features/0/name", ""),
              "'/features/0/name' is a name and must not be empty.");
    EXPECT_EQ(mistake("/name", std::string("a\0b", 3)),
              "'/name' is a name and must not contain a zero byte.");
    EXPECT_EQ(mistake("/features/1/name", "on1"),
              "'/features/1/name' is 'on1', the name of another button.");
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

}  // namespace
}  // namespace camera
