#include "camera/bus/message_json.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <system_error>

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

TEST(ArgumentsText, SeparatesWithCommas) {
    EXPECT_EQ(arguments_text(common::parse_json("[]", "the text")), "");
    EXPECT_EQ(arguments_text(common::parse_json(R"([3])", "the text")), "3");
    EXPECT_EQ(arguments_text(common::parse_json(R"([3,0.5,"main",[1]])", "the text")),
              R"(3, 0.5, "main", [1])");
}

}  // namespace
}  // namespace camera
