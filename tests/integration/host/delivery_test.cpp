#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class Delivery : public HostTest {
  protected:
    static std::string connect(const std::string& from, const std::string& to) {
        return "[[connections]]\nfrom = \"" + from + "\"\nto = \"" + to + "\"\n";
    }

    static std::string source(const std::string& name, const std::string& keys) {
        return "[blocks." + name + "]\ntype = \"Source\"\n" + keys;
    }

    static std::string sink(const std::string& name, const std::string& keys) {
        return "[blocks." + name + "]\ntype = \"Sink\"\n" + keys;
    }

    /// The log lines and the outputs' values in their order, one a line.
    std::string story(const std::string& graph) const {
        const Ended ended = run(probes(graph), {"--for", "0.2"});
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.err, "");
        std::string lines = without_times(ended.out);
        const auto strip = [&lines](const std::string& part, const std::string& with) {
            for (std::size_t at = 0; (at = lines.find(part, at)) != std::string::npos;)
                lines.replace(at, part.size(), with);
        };
        strip(R"({"event":"log","time":0,"level":4,"message":")", "");
        strip(R"({"event":"output","time":0,"block":")", "");
        strip(R"(","port":")", ".");
        strip(R"(","type":"double","value":)", " = ");
        strip("\"}", "");
        strip("}", "");
        strip(R"({"event":"ready","time":0)", "ready");
        strip(R"({"event":"exit","time":0,"status":0)", "exit");
        return lines;
    }
};

TEST_F(Delivery, OutputsOfTheConstructorArriveBeforeTheStart) {
    EXPECT_EQ(story(sink("sink", "only = \"double\"\n") + source("source", "in_constructor = 2\n") +
                    connect("source.out", "sink.double")),
              "source.out = 2.0\nready\nsink: run double!=2\nsink: kept 2.000000\nexit\n");
}

TEST_F(Delivery, SeveralNewValuesBeforeARunMakeOneRun) {
    EXPECT_EQ(story(source("source", "in_constructor = 1\nin_start = 3\n") +
                    sink("sink", "only = \"double\"\n") + connect("source.out", "sink.double")),
              "source.out = 1.0\nsource.out = 4.0\nready\nsink: run double!=4\n"
              "sink: kept 4.000000\nexit\n");
}

TEST_F(Delivery, FiresOfTheConstructorAreServedAfterTheStart) {
    EXPECT_EQ(story(source("source", "fires_in_constructor = true\n") + sink("sink", "")),
              "ready\nsource: run\nsource.out = 1.0\nexit\n");
}

TEST_F(Delivery, InputsReadTheOutputInPlace) {
    // When the sink runs, in the pass after the first value, the source has published another.
    EXPECT_EQ(story(source("source", "runs = 3\n") + sink("sink", "only = \"double\"\n") +
                    connect("source.out", "sink.double")),
              "ready\nsource: run\nsource.out = 1.0\nsource: run\nsource.out = 2.0\n"
              "sink: run double!=2\nsource: run\nsource.out = 3.0\nsink: run double!=3\n"
              "sink: kept 3.000000\nexit\n");
}

TEST_F(Delivery, SameValueIsANewValueToo) {
    EXPECT_EQ(story(source("source", "runs = 3\nconstant = 5.5\n") +
                    sink("sink", "only = \"double\"\n") + connect("source.out", "sink.double")),
              "ready\nsource: run\nsource.out = 5.5\nsource: run\nsource.out = 5.5\n"
              "sink: run double!=5.5\nsource: run\nsource.out = 5.5\nsink: run double!=5.5\n"
              "sink: kept 5.500000\nexit\n");
}

TEST_F(Delivery, OneOutputFeedsManyInputs) {
    EXPECT_EQ(story(source("source", "runs = 1\n") + sink("one", "only = \"double\"\n") +
                    sink("two", "only = \"other\"\n") + connect("source.out", "two.other") +
                    connect("source.out", "one.double") + connect("source.out", "two.double")),
              "ready\nsource: run\nsource.out = 1.0\ntwo: run other!=1\none: run double!=1\n"
              "two: kept 1.000000\none: kept 1.000000\nexit\n");
}

TEST_F(Delivery, OnlyWhatIsNewIsTriggered) {
    EXPECT_EQ(
        story(source("slow", "in_start = 1\n") + source("fast", "runs = 2\n") + sink("sink", "") +
              connect("slow.out", "sink.double") + connect("fast.out", "sink.other")),
        "slow.out = 1.0\nready\n"
        "sink: run double!=1 other=0 quiet=0 float=0 int=0 bool=false tick=0 point=0\n"
        "fast: run\nfast.out = 1.0\nfast: run\nfast.out = 2.0\n"
        "sink: run double=1 other!=2 quiet=0 float=0 int=0 bool=false tick=0 point=0\n"
        "exit\n");
}

TEST_F(Delivery, UnconnectedInputsReadTheirTypesFirstValue) {
    EXPECT_EQ(story(sink("sink", "run = true\n")),
              "ready\nsink: run double=0 other=0 quiet=0 float=0 int=0 bool=false tick=0 point=0\n"
              "exit\n");
}

TEST_F(Delivery, InputThatDoesNotTriggerWaitsForARunOfAnother) {
    EXPECT_EQ(story(source("source", "in_start = 1\n") + sink("sink", "only = \"quiet\"\n") +
                    connect("source.out", "sink.quiet")),
              "source.out = 1.0\nready\nsink: kept 0.000000\nexit\n");
    EXPECT_EQ(
        story(source("source", "in_start = 1\n") + sink("sink", "only = \"quiet\"\nrun = true\n") +
              connect("source.out", "sink.quiet")),
        "source.out = 1.0\nready\nsink: run quiet!=1\nsink: kept 0.000000\nexit\n");
}

TEST_F(Delivery, ValuesOfAnUnknownDatatypeTravelToo) {
    const Ended ended =
        run(probes("[blocks.values]\ntype = \"Values\"\n" + sink("sink", "only = \"point\"\n") +
                   connect("values.point", "sink.point")),
            {"--for", "0.1"});
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(lines_with(messages(ended.out), "run"), "sink: run point!=3\n");
}

TEST_F(Delivery, EveryDatatypeTravels) {
    const Ended ended = run(probes("[blocks.v]\ntype = \"Values\"\n" + sink("s", "") +
                                   connect("v.float", "s.float") + connect("v.bool", "s.bool") +
                                   connect("v.int", "s.int") + connect("v.tick", "s.tick")),
                            {"--for", "0.1"});
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_TRUE(messages(ended.out).ends_with(
        "s: run double=0 other=0 quiet=0 float!=2 int=-7 bool=true tick=9007199254740993 "
        "point=0\n"))
        << messages(ended.out);
}

}  // namespace
}  // namespace test
