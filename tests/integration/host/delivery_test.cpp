
#include "tests/integration/host/host_test.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

/// A graph, and all log lines and values of it in their order.
struct Flow : Case {
    std::string graph;
    std::string events;
};

class Delivery : public HostTest, public testing::WithParamInterface<Flow> {};

TEST_P(Delivery, GivesTheseEvents) {
    const Ended ended = run(GetParam().graph, {"--for", "0.2"});
    expect_end(ended);
    std::string lines = without_times(ended.out);
    for (const auto& [json, text] : std::map<std::string, std::string>{
             {R"re(\{"event":"log",.*"message":"(.*)"\})re", "$1"},
             {R"re(\{"event":"output",.*"block":"(.*)","port":"(.*)","type":.*"value":(.*)\})re",
              "$1.$2 = $3"},
             {R"re(\{"event":"(ready|exit)".*\})re", "$1"}})
        lines = Pattern(json).replace(lines, text);
    EXPECT_EQ(lines, GetParam().events);
}

INSTANTIATE_TEST_SUITE_P(
    Tests, Delivery,
    testing::Values(
        Flow{{"OutputsOfTheConstructorArriveBeforeTheStart"},
             R"(
blocks.sink = {type = "Sink", only = "double"}
blocks.source = {type = "Source", in_constructor = 2}
connections = [{from = "source.out", to = "sink.double"}])",
             "source.out = 2.0\nready\nsink: run double!=2\nsink: kept 2.000000\nexit\n"},
        Flow{{"SeveralNewValuesBeforeARunMakeOneRun"},
             R"(
blocks.source = {type = "Source", in_constructor = 1, in_start = 3}
blocks.sink = {type = "Sink", only = "double"}
connections = [{from = "source.out", to = "sink.double"}])",
             "source.out = 1.0\nsource.out = 4.0\nready\nsink: run double!=4\n"
             "sink: kept 4.000000\nexit\n"},
        Flow{{"FiresOfTheConstructorAreServedAfterTheStart"},
             R"(
blocks.source = {type = "Source", fires_in_constructor = true}
blocks.sink = {type = "Sink"})",
             "ready\nsource: run\nsource.out = 1.0\nexit\n"},
        // When the sink runs, in the pass after the first value, the source has published another.
        Flow{{"InputsReadTheOutputInPlace"},
             R"(
blocks.source = {type = "Source", runs = 3}
blocks.sink = {type = "Sink", only = "double"}
connections = [{from = "source.out", to = "sink.double"}])",
             "ready\nsource: run\nsource.out = 1.0\nsource: run\nsource.out = 2.0\n"
             "sink: run double!=2\nsource: run\nsource.out = 3.0\nsink: run double!=3\n"
             "sink: kept 3.000000\nexit\n"},
        Flow{{"SameValueIsANewValueToo"},
             R"(
blocks.source = {type = "Source", runs = 3, constant = 5.5}
blocks.sink = {type = "Sink", only = "double"}
connections = [{from = "source.out", to = "sink.double"}])",
             "ready\nsource: run\nsource.out = 5.5\nsource: run\nsource.out = 5.5\n"
             "sink: run double!=5.5\nsource: run\nsource.out = 5.5\nsink: run double!=5.5\n"
             "sink: kept 5.500000\nexit\n"},
        Flow{{"OneOutputFeedsManyInputs"},
             R"(
blocks.source = {type = "Source", runs = 1}
blocks.one = {type = "Sink", only = "double"}
blocks.two = {type = "Sink", only = "other"}
connections = [{from = "source.out", to = "two.other"}, {from = "source.out", to = "one.double"},
               {from = "source.out", to = "two.double"}])",
             "ready\nsource: run\nsource.out = 1.0\ntwo: run other!=1\none: run double!=1\n"
             "two: kept 1.000000\none: kept 1.000000\nexit\n"},
        Flow{{"OnlyWhatIsNewIsTriggered"},
             R"(
blocks.slow = {type = "Source", in_start = 1}
blocks.fast = {type = "Source", runs = 2}
blocks.sink = {type = "Sink"}
connections = [{from = "slow.out", to = "sink.double"}, {from = "fast.out", to = "sink.other"}])",
             "slow.out = 1.0\nready\n"
             "sink: run double!=1 other=0 quiet=0 float=0 int=0 bool=false tick=0 point=0\n"
             "fast: run\nfast.out = 1.0\nfast: run\nfast.out = 2.0\n"
             "sink: run double=1 other!=2 quiet=0 float=0 int=0 bool=false tick=0 point=0\n"
             "exit\n"},
        Flow{{"UnconnectedInputsReadTheDefaultOfTheirType"},
             R"(
blocks.sink = {type = "Sink", run = true})",
             "ready\nsink: run double=0 other=0 quiet=0 float=0 int=0 bool=false tick=0 point=0\n"
             "exit\n"},
        Flow{{"InputThatDoesNotTriggerWaitsForARunOfAnother"},
             R"(
blocks.source = {type = "Source", in_start = 1}
blocks.waits = {type = "Sink", only = "quiet"}
blocks.runs = {type = "Sink", only = "quiet", run = true}
connections = [{from = "source.out", to = "waits.quiet"}, {from = "source.out", to = "runs.quiet"}])",
             "source.out = 1.0\nready\nruns: run quiet!=1\nruns: kept 0.000000\n"
             "waits: kept 0.000000\nexit\n"}),
    name_of<Flow>);

class EveryDatatype : public HostTest {};

TEST_F(EveryDatatype, TravelsAlsoAnUnknownOne) {
    const Ended ended = run(R"(blocks.v = {type = "Values"}
                               blocks.s = {type = "Sink"}
                               connections = [{from = "v.float", to = "s.float"},
                                              {from = "v.bool", to = "s.bool"},
                                              {from = "v.int", to = "s.int"},
                                              {from = "v.tick", to = "s.tick"},
                                              {from = "v.point", to = "s.point"}])",
                            {"--for", "0.1"});
    expect_end(ended);
    const std::string log = messages(ended.out);
    const std::string unset = "s: run double=0 other=0 quiet=0 ";
    EXPECT_TRUE(
        log.starts_with(unset + "float!=nan int!=-7 bool!=true tick!=9007199254740993 point!=3\n"))
        << log;
    EXPECT_TRUE(log.ends_with(unset + "float!=2 int=-7 bool=true tick=9007199254740993 point=3\n"))
        << log;
}

}  // namespace
}  // namespace test
