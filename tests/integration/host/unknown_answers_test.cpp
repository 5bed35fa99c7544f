// A program under the name of a host may answer anything.
#include "tests/integration/host/false_host.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class UnknownAnswer : public HostTest {
  protected:
    /// What each command that asks a host for its description makes of this one.
    static void expect_refused(const std::string& answer) {
        const FalseHost host(bus(), answer);
        for (const Words& words : {Words{"graph", "--control"}, Words{"watch"}}) {
            Words command{FENWA_PROGRAM};
            command.insert(command.end(), words.begin(), words.end());
            command.insert(command.end(), {"--bus", bus()});
            const Ended ended = run_program(command);
            EXPECT_EQ(ended.code, 69) << words.front() << answer.substr(0, 100);
            EXPECT_EQ(ended.signal, 0) << words.front() << answer.substr(0, 100);
            EXPECT_EQ(ended.out, "") << words.front();
            EXPECT_TRUE(ended.err.starts_with("fenwa: the host's answer makes no sense: "))
                << words.front() << answer.substr(0, 100);
        }
    }

    static std::string nested(std::size_t depth, const std::string& open,
                              const std::string& close) {
        std::string text;
        for (std::size_t i = 0; i < depth; ++i)
            text += open;
        for (std::size_t i = 0; i < depth; ++i)
            text += close;
        return text;
    }
};

TEST_F(UnknownAnswer, DeeplyNestedIsRefused) {
    expect_refused(nested(1'000'000, "[", "]"));
    const std::string value = nested(100'000, "[", "]");
    expect_refused(R"({"blocks":[{"name":"b","type":"T","settings":{},"inputs":[],)"
                   R"("terminated_inputs":[],"outputs":[{"name":"o","type":"int","value":)" +
                   value + R"(}]}],"connections":[]})");
}

TEST_F(UnknownAnswer, OfAnotherFormIsRefused) {
    for (const char* answer :
         {"", "no JSON", "null", "[]", "{}", "7", R"({"blocks":7,"connections":[]})",
          R"({"blocks":[{"name":5}],"connections":[]})",
          R"({"blocks":[{"type":"T"}],"connections":[]})", R"({"blocks":[[]],"connections":[]})",
          R"({"blocks":[7],"connections":[]})"})
        expect_refused(answer);
}

TEST_F(UnknownAnswer, WithAValueOfAnotherFormIsNotDrawn) {
    for (const char* value : {R"({"ticks":1})", R"({"ticks":[]})"}) {
        const FalseHost host(
            bus(), std::string(R"({"blocks":[{"name":"b","type":"T","settings":{},"inputs":[],)"
                               R"("terminated_inputs":[],"outputs":[{"name":"o","type":"int",)"
                               R"("value":)") +
                       value + R"(}]}],"connections":[]})");
        const Ended ended = run_program({FENWA_PROGRAM, "graph", "--control", "--bus", bus()});
        EXPECT_EQ(ended.code, 69) << value;
        EXPECT_EQ(ended.err, "fenwa: the host's answer makes no sense: it has an unknown form\n");
    }
}

}  // namespace
}  // namespace test
