#include <sys/resource.h>

#include <functional>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// A graph file of 1 MiB that is made to cost as much as it can.
struct HostileGraph {
    std::string name;
    std::string head;
    std::function<std::string(std::size_t)> part;  ///< repeated as often as it fits
    std::string said;                              ///< a part of what is said about it
    std::string tail = {};
};

void PrintTo(const HostileGraph& graph, std::ostream* out) {
    *out << graph.name;
}

class HostileGraphs : public HostTest, public testing::WithParamInterface<HostileGraph> {
  protected:
    static double processor_seconds() {
        rusage usage{};
        getrusage(RUSAGE_CHILDREN, &usage);
        const auto seconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
        };
        return seconds(usage.ru_utime) + seconds(usage.ru_stime);
    }
};

TEST_P(HostileGraphs, IsCheckedInTimeWithFewWords) {
    constexpr std::size_t largest = 1024 * 1024;
    // 2 s in a release build; a debug build takes several times as long.
    constexpr double enough_seconds = 12.0;
    constexpr std::size_t enough_words = 2 * largest;
    std::string graph = GetParam().head;
    for (std::size_t i = 0;; ++i) {
        const std::string part = GetParam().part(i);
        if (graph.size() + part.size() + GetParam().tail.size() > largest)
            break;
        graph += part;
    }
    graph += GetParam().tail;
    const double before = processor_seconds();
    const Ended ended = check(graph);
    EXPECT_LT(processor_seconds() - before, enough_seconds);
    EXPECT_EQ(ended.code, 78);
    EXPECT_LT(ended.err.size(), enough_words);
    EXPECT_NE(ended.err.find(GetParam().said), std::string::npos)
        << ended.err.substr(0, 1000) << "\n…\n"
        << ended.err.substr(ended.err.size() - std::min<std::size_t>(ended.err.size(), 500));
}

std::string number(std::size_t i) {
    return std::to_string(i);
}

/// A different name each time that is near to others of its kind.
std::string long_name(std::size_t i, std::size_t size) {
    std::string name = number(i);
    name.resize(size, 'x');
    return name;
}

const std::string probe = "plugins = [\"libprobe.so\"]\n";
const std::string timer = "[blocks.t]\ntype = \"Timer\"\ninterval = 0\n";
const std::string end_of_list = "]\n" + timer;
const std::string not_shown = " more, which are not shown\n";

INSTANTIATE_TEST_SUITE_P(
    Of1MiB, HostileGraphs,
    testing::Values(
        HostileGraph{"UnknownTypes", probe,
                     [](std::size_t i) {
                         return "[blocks.b" + number(i) + "]\ntype = \"Sourse" + number(i) + "\"\n";
                     },
                     not_shown},
        HostileGraph{"UnreadKeys", probe + "[blocks.s]\ntype = \"Source\"\nruns = true\n",
                     [](std::size_t i) { return "r" + number(i) + "=1\n"; }, not_shown},
        HostileGraph{"UnknownTopLevelKeys", "",
                     [](std::size_t i) { return "b" + number(i) + "=1\n"; }, not_shown},
        HostileGraph{"UnknownPlugins", "plugins = [",
                     [](std::size_t i) { return "\"libprob" + number(i) + ".so\",\n"; }, not_shown,
                     end_of_list},
        HostileGraph{"UnknownBlocksOfConnections", timer,
                     [](std::size_t i) {
                         return "[[connections]]\nfrom=\"u" + number(i) + ".x\"\nto=\"t.x\"\n";
                     },
                     not_shown},
        HostileGraph{"UnknownBlocksNextToKnownOnes", "",
                     [](std::size_t i) {
                         return "[blocks.n" + long_name(i, 60) +
                                "]\ntype = \"Timer\"\ninterval = 1\n[[connections]]\nfrom = \"m" +
                                long_name(i, 60) + ".x\"\nto = \"t.x\"\n";
                     },
                     not_shown},
        HostileGraph{"UnknownBlocksWithLongNames", "",
                     [](std::size_t i) {
                         return "[blocks.n" + long_name(i, 250) +
                                "]\ntype = \"Timer\"\ninterval = 1\n[[connections]]\nfrom = \"" +
                                long_name(i, 200) + ".x\"\nto = \"" + long_name(i, 201) + ".y\"\n";
                     },
                     not_shown},
        HostileGraph{"UnknownPorts", probe + "[blocks.s]\ntype = \"Sink\"\n",
                     [](std::size_t i) {
                         return "[[connections]]\nfrom=\"s.a" + number(i) + "\"\nto=\"s.dou" +
                                number(i) + "\"\n";
                     },
                     not_shown},
        HostileGraph{
            "WrongBlocks", "",
            [](std::size_t i) { return "[blocks.b" + number(i) + "]\ntype = \"Timer\"\n"; },
            not_shown},
        HostileGraph{"GoodBlocksAndABadOne", timer,
                     [](std::size_t i) {
                         return "[blocks.b" + number(i) + "]\ntype = \"Timer\"\ninterval = 1\n";
                     },
                     "graph.toml: 1 error\n"},
        HostileGraph{"KeysInATableOfALongName",
                     "[blocks.t]\ntype = \"Timer\"\ninterval = 1\n[blocks.t." +
                         std::string(400'000, 'k') + "]\n",
                     [](std::size_t i) { return "k" + number(i) + "=1\n"; },
                     "the key is longer than 1024 bytes"},
        HostileGraph{"OneObjectOfManyBlocksAndALongName",
                     probe + "[blocks." + std::string(400'000, 'n') +
                         "]\ntype = \"Exporter\"\npath = \"/a\"\n[blocks.t]\ntype = \"Timer\"\n",
                     [](std::size_t i) {
                         return "[blocks.b" + number(i) + "]\ntype = \"Exporter\"\npath = \"/a\"\n";
                     },
                     not_shown},
        HostileGraph{"LongType", "[blocks.t]\ntype = \"" + std::string(1'000'000, 'T') + "\"\n",
                     [](std::size_t /*i*/) { return std::string(2'000'000, ' '); }, "TTT…TTT"},
        HostileGraph{"MistakesInOneLine", "plugins = [", [](std::size_t /*i*/) { return "1,"; },
                     not_shown, end_of_list},
        HostileGraph{"SamePluginInManySpellings", "plugins = [\n",
                     [](std::size_t i) {
                         return "\"" FENWA_TEST_PLUGINS + std::string(1 + i, '/') +
                                "libprobe.so\",\n";
                     },
                     "threw in its entry point: the block type", end_of_list},
        HostileGraph{"ZeroBytes", timer,
                     [](std::size_t i) { return "z" + number(i) + "=\"\\u0000\"\n"; }, not_shown}),
    [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace test
