#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// `fenwa check --format json`.
class CheckJson : public HostTest {};

TEST_F(CheckJson, IsAnObjectALineForEachMistake) {
    const Ended ended = check(block("s", "Sink", "onyl = 'double'") + block("t", "Timr") +
                                  block("u", "Sink", "only = ['a', 'b']"),
                              {"--format", "json"});
    expect_end(ended, 78);
    EXPECT_EQ(ended.out, R"({"file":"graph.toml","line":2,"column":28,"severity":"warning",)"
                         R"("text":"Sink does not read the key 'onyl'",)"
                         R"("help":"did you mean 'only'?"})"
                         "\n"
                         R"({"file":"graph.toml","line":3,"column":20,"severity":"error",)"
                         R"("text":"unknown block type 'Timr'","help":"did you mean 'Timer'?"})"
                         "\n"
                         R"({"file":"graph.toml","line":4,"column":28,"severity":"error",)"
                         R"("text":"block 'u' (Sink): the key 'only' must be a string, not an )"
                         R"(array of 2 strings","help":"no block can read an array, except one of )"
                         R"(a single string"})"
                         "\n");
}

TEST_F(CheckJson, MistakeOfTheWholeFileHasNoPlace) {
    const Ended ended = check("plugins = []", {"--format=json"});
    expect_end(ended, 78);
    EXPECT_TRUE(ended.out.starts_with(R"({"file":"graph.toml","line":null,"column":null,)"
                                      R"("severity":"error","text":"the graph has no blocks",)"
                                      R"("help":"a graph needs)"))
        << ended.out;
}

TEST_F(CheckJson, OfAGraphWithoutMistakesIsEmpty) {
    const Ended ended = check(block("t", "Timer", "interval = 9"), {"--format=json"});
    expect_end(ended, 0, "fenwa: graph.toml: no mistakes (1 block, 0 connections)\n");
    EXPECT_EQ(ended.out, "");
}

TEST_F(CheckJson, OfAFileThatIsNotTomlHasItsPlaceToo) {
    const Ended ended = check("plugins = []\n[", {"--format=json"});
    EXPECT_EQ(ended.code, 78);
    EXPECT_TRUE(ended.out.starts_with(R"({"file":"graph.toml","line":2,"column":2,)")) << ended.out;
    EXPECT_TRUE(ended.out.ends_with("\"help\":null}\n")) << ended.out;
}

}  // namespace
}  // namespace test
