#include "camera/bus/message_json.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <system_error>

#include "camera/models/command_error.hpp"
#include "tests/support/bus_messages.hpp"

namespace camera {
namespace {

class MessageJsonTest : public ::testing::Test {
  protected:
    template <class... Values>
    std::string json(const char* types, Values... values) {
        const support::Message message = messages_.reply(types, values...);
        return common::json_line(body_json(*message));
    }

    /// A message without a body, which can still be written.
    support::Message open_message() {
        sd_bus_message* message = nullptr;
        support::check(
            sd_bus_message_new_signal(messages_.bus(), &message, "/x", "com.example.X", "Y"));
        return support::Message(message);
    }

    /// What a message with this body becomes; appended to another one it must be the same.
    template <class... Values>
    std::string typed(const char* types, Values... values) {
        const support::Message message = messages_.reply(types, values...);
        const common::Json body = typed_body_json(*message);
        const support::Message copy = open_message();
        append_json(*copy, types, body);
        support::check(sd_bus_message_seal(copy, 7, 0));
        EXPECT_STREQ(sd_bus_message_get_signature(copy, 1), types);
        EXPECT_EQ(common::json_line(typed_body_json(*copy)), common::json_line(body));
        return common::json_line(body);
    }

    /// The sentence with which values are refused.
    std::string refusal(const std::string& types, const char* values) {
        const support::Message message = open_message();
        try {
            append_json(*message, types, common::Json::parse(values));
        } catch (const CommandError& error) {
            return error.what();
        }
        return "no refusal";
    }

    support::Messages messages_;
};

TEST_F(MessageJsonTest, EveryBasicTypeHasItsValue) {
    EXPECT_EQ(json(""), "[]");
    EXPECT_EQ(
        json("ybnqiuxt", 255, 1, -32768, 65535, -2147483647, 4294967295U, INT64_MIN, UINT64_MAX),
        "[255,true,-32768,65535,-2147483647,4294967295,-9223372036854775808,"
        "18446744073709551615]");
    EXPECT_EQ(json("bdsog", 0, 0.5, "a \"b\"\n", "/com/example", "a{sv}"),
              R"([false,0.5,"a \"b\"\n","/com/example","a{sv}"])");
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(json("ddd", std::numeric_limits<double>::quiet_NaN(), infinity, -infinity),
              R"(["nan","inf","-inf"])")
        << "numbers that JSON does not have are strings";
    EXPECT_EQ(json("hi", STDERR_FILENO, 7), R"(["<file descriptor>",7])");
}

TEST_F(MessageJsonTest, ContainersNest) {
    EXPECT_EQ(json("ai", 3, 1, 2, 3), "[[1,2,3]]");
    EXPECT_EQ(json("ai", 0), "[[]]");
    EXPECT_EQ(json("(i(sb))", 1, "x", 1), R"([[1,["x",true]]])");
    EXPECT_EQ(json("aai", 2, 1, 5, 0), "[[[5],[]]]");
    EXPECT_EQ(json("v", "v", "s", "deep"), R"(["deep"])");
    EXPECT_EQ(json("v", "(id)", 3, 0.5), "[[3,0.5]]");
}

TEST_F(MessageJsonTest, DictionariesWithStringKeysAreObjectsInOrderAndOthersArrays) {
    EXPECT_EQ(json("a{sv}", 2, "z", "i", 1, "a", "s", "two"), R"([{"z":1,"a":"two"}])");
    EXPECT_EQ(json("a{oi}", 1, "/x", 1), R"([{"/x":1}])");
    EXPECT_EQ(json("a{gi}", 1, "ai", 1), R"([{"ai":1}])");
    EXPECT_EQ(json("a{sv}", 0), "[{}]");
    EXPECT_EQ(json("a{is}", 2, 5, "five", 4, "four"), R"([[[5,"five"],[4,"four"]]])");
}

TEST_F(MessageJsonTest, LeavesTheMessageToBeReadFromItsBeginning) {
    const support::Message message = messages_.reply("is", 3, "main");
    int first = 0;
    ASSERT_GT(sd_bus_message_read(message, "i", &first), 0);
    EXPECT_EQ(common::json_line(body_json(*message)), R"([3,"main"])");
    first = 0;
    ASSERT_GT(sd_bus_message_read(message, "i", &first), 0);
    EXPECT_EQ(first, 3);
}

TEST_F(MessageJsonTest, AMessageThatIsStillBeingWrittenCannotBeRead) {
    sd_bus_message* open = nullptr;
    ASSERT_GE(sd_bus_message_new_signal(messages_.bus(), &open, "/x", "com.example.X", "Y"), 0);
    const support::Message owned(open);
    EXPECT_THROW((void)body_json(*open), std::system_error);
}

TEST_F(MessageJsonTest, ABodyWithTypesCanBeAppendedElsewhere) {
    EXPECT_EQ(typed(""), "[]");
    EXPECT_EQ(typed("ybnqiuxt", 255, 1, -32768, 65535, -7, 7U, INT64_MIN, UINT64_MAX),
              "[255,true,-32768,65535,-7,7,-9223372036854775808,18446744073709551615]");
    EXPECT_EQ(typed("dsog", -std::numeric_limits<double>::infinity(), "a", "/a", "a{sv}"),
              R"(["-inf","a","/a","a{sv}"])");
    EXPECT_EQ(typed("v", "d", 36.5), R"([{"d":36.5}])");
    EXPECT_EQ(typed("sa{sv}as", "x", 2, "p", "d", 25.0, "q", "ai", 2, 1, 2, 1, "r"),
              R"(["x",{"p":{"d":25.0},"q":{"ai":[1,2]}},["r"]])");
    EXPECT_EQ(typed("a(sas)a{is}", 1, "f", 2, "en", "de", 1, 5, "five"),
              R"([[["f",["en","de"]]],[[5,"five"]]])");
    EXPECT_EQ(refusal("t", R"(["18446744073709551615"])"), "no refusal")
        << "TOML has no such integer";
}

TEST_F(MessageJsonTest, AValueOfAnotherTypeCannotBeAppended) {
    EXPECT_EQ(refusal("i", R"(["x"])"), "\"x\" is not a value of the D-Bus type 'i'");
    EXPECT_EQ(refusal("y", "[256]"), "256 is not a value of the D-Bus type 'y'");
    EXPECT_EQ(refusal("i", "[1.5]"), "1.5 is not a value of the D-Bus type 'i'");
    EXPECT_EQ(refusal("v", "[1]"), "1 is not a value of the D-Bus type 'v'");
    EXPECT_EQ(refusal("v", R"([{"zz": 1}])"), "{\"zz\":1} is not a value of the D-Bus type 'v'");
    EXPECT_EQ(refusal("o", R"(["x"])"), "\"x\" is not a value of the D-Bus type 'o'");
    EXPECT_EQ(refusal("ii", "[1]"), "[1] is not a value of the D-Bus type 'ii'");
    EXPECT_EQ(refusal("i", "[1,2]"), "[1,2] is not a value of the D-Bus type 'i'");
    EXPECT_NE(refusal("a", "[[1]]"), "no refusal");
    EXPECT_NE(refusal("(", "[[1]]"), "no refusal");
}

TEST(ArgumentsText, SeparatesWithCommas) {
    EXPECT_EQ(arguments_text(common::parse_json("[]", "the text")), "");
    EXPECT_EQ(arguments_text(common::parse_json(R"([3])", "the text")), "3");
    EXPECT_EQ(arguments_text(common::parse_json(R"([3,0.5,"main",[1]])", "the text")),
              R"(3, 0.5, "main", [1])");
}

}  // namespace
}  // namespace camera
