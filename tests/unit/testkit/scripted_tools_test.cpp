#include "fenwa/testkit/scripted_tools.hpp"

#include <gtest/gtest.h>

#include <cerrno>

#include "fenwa/sdbus_error.hpp"
#include "fenwa/slot.hpp"

namespace {

using Fenwa::SDBusError;
using Fenwa::testkit::Call;
using Fenwa::testkit::ScriptedTools;

using Calls = std::vector<Call>;

class ScriptedToolsTest : public testing::Test {
  protected:
    template <class... Arguments>
    void call(const char* types, Arguments... arguments) {
        tools.call_method("a.Lamp", "/a/Lamp", "a.Lamp1", "Set", reply.out(), types, arguments...);
    }
    void read(const char* type) {
        tools.get_property("a.Lamp", "/a/Lamp", "a.Lamp1", "Level", reply.out(), type);
    }
    /// The name and the message of the exception, and its errno.
    template <class Act>
    static std::string failure_of(Act act) {
        try {
            act();
        } catch (const SDBusError& error) {
            return std::string(error.what()) + " " + std::to_string(-error.code());
        }
        return "none";
    }

    ScriptedTools tools;
    Fenwa::Message reply;
};

TEST_F(ScriptedToolsTest, HasNoBus) {
    EXPECT_EQ(tools.get_bus(), nullptr);
}

TEST_F(ScriptedToolsTest, AnswersEachCallAndRecordsIt) {
    tools.answer("Set", {"sd", "done", 0.5});
    for (const int level : {3, 4}) {
        call("i", level);
        const char* text = nullptr;
        double number = 0;
        ASSERT_GT(sd_bus_message_read(reply.get(), "sd", &text, &number), 0);
        EXPECT_STREQ(text, "done");
        EXPECT_EQ(number, 0.5);
    }
    EXPECT_EQ(tools.call_count(), 2U);
    EXPECT_EQ(tools.take_calls(), (Calls{{"a.Lamp", "/a/Lamp", "a.Lamp1", "Set", "i 3"},
                                         {"a.Lamp", "/a/Lamp", "a.Lamp1", "Set", "i 4"}}));
    EXPECT_EQ(tools.take_calls(), Calls{});
}

TEST_F(ScriptedToolsTest, FailsACallThatItDoesNotKnowAsWithoutABus) {
    const std::string invalid =
        "org.freedesktop.DBus.Error.InvalidArgs: Invalid argument " + std::to_string(EINVAL);
    EXPECT_EQ(failure_of([&] { call(nullptr); }), invalid);
    EXPECT_EQ(failure_of([&] { read("i"); }), invalid);
    EXPECT_EQ(tools.call_count(), 2U);
    EXPECT_EQ(reply, nullptr);
}

TEST_F(ScriptedToolsTest, RefusesACall) {
    tools.answer("Set");
    tools.refuse("Set", "a.Error", "no");
    EXPECT_EQ(failure_of([&] { call(""); }), "a.Error: no " + std::to_string(EIO));
}

TEST_F(ScriptedToolsTest, TimesOutInACallThatItIgnores) {
    tools.ignore("Set");
    EXPECT_EQ(
        failure_of([&] { call(""); }),
        "org.freedesktop.DBus.Error.NoReply: Method call timed out " + std::to_string(ETIMEDOUT));
}

TEST_F(ScriptedToolsTest, GivesAPropertyOfTheTypeThatIsAskedFor) {
    tools.set_property("Level", {"i", 7});
    read("i");
    int level = 0;
    ASSERT_GT(sd_bus_message_read(reply.get(), "i", &level), 0);
    EXPECT_EQ(level, 7);
    EXPECT_NE(failure_of([&] { read("d"); }).find(std::to_string(ENXIO)), std::string::npos);
    EXPECT_EQ(tools.take_calls().front(),
              (Call{"a.Lamp", "/a/Lamp", "org.freedesktop.DBus.Properties", "Get",
                    R"(s "a.Lamp1", s "Level")"}));
}

TEST_F(ScriptedToolsTest, WritesArgumentsOfEveryTypeWithTheirTypes) {
    tools.answer("Set");
    call("ybnqiuxtd", 1, 1, -2, 3, -4, 5U, std::int64_t{-6}, std::uint64_t{7}, 8.5);
    call("sog", "a \"b\"", "/c", "a{sv}");
    call("as", 2, "a", "b");
    call("a{sv}(ib)v", 2, "k", "i", 3, "l", "s", "m", 4, 0, "as", 1, "n");
    call("ai", 0);
    Calls calls = tools.take_calls();
    ASSERT_EQ(calls.size(), 5U);
    EXPECT_EQ(calls[0].arguments, "y 1, b true, n -2, q 3, i -4, u 5, x -6, t 7, d 8.5");
    EXPECT_EQ(calls[1].arguments, R"(s "a "b"", o "/c", g "a{sv}")");
    EXPECT_EQ(calls[2].arguments, R"(as [s "a"; s "b"])");
    EXPECT_EQ(calls[3].arguments,
              R"(a{sv} [s "k", v <i 3>; s "l", v <s "m">], (i 4, b false), v <as [s "n"]>)");
    EXPECT_EQ(calls[4].arguments, "ai []");
}

}  // namespace
