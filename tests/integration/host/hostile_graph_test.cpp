#include <sys/resource.h>

#include <functional>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// A graph file of 1 MiB that is made to cost as much as it can.
struct HostileGraph : Case {
    std::string head;
    std::function<std::string(const std::string& number)> part;  ///< repeated while it fits
    std::string said = " more, which are not shown\n";           ///< a part of the answer
    std::string tail = {};
};

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
        const std::string part = GetParam().part(std::to_string(i));
        if (graph.size() + part.size() + GetParam().tail.size() > largest)
            break;
        graph += part;
    }
    graph += GetParam().tail;
    const double before = processor_seconds();
    const Ended ended =
        fenwa({"check", folder().write("graph.toml", graph), "--plugin-dir", FENWA_TEST_PLUGINS});
    EXPECT_LT(processor_seconds() - before, enough_seconds);
    EXPECT_EQ(ended.code, 78);
    EXPECT_LT(ended.err.size(), enough_words);
    EXPECT_NE(ended.err.find(GetParam().said), std::string::npos)
        << ended.err.substr(0, 1000) << "\n…\n"
        << ended.err.substr(ended.err.size() - std::min<std::size_t>(ended.err.size(), 500));
}

/// A different name each time that is near to others of its kind.
std::string long_name(std::string number, std::size_t size) {
    number.resize(size, 'x');
    return number;
}

std::string table(const std::string& name, const std::string& type, const std::string& more = {}) {
    return "[blocks." + name + "]\ntype = \"" + type + "\"\n" + more;
}
std::string connection(const std::string& from, const std::string& to) {
    return "[[connections]]\nfrom=\"" + from + "\"\nto=\"" + to + "\"\n";
}

const std::string probe = "plugins = [\"libprobe.so\"]\n";
const std::string timer = table("t", "Timer", "interval = 0\n");
const std::string end_of_list = "]\n" + timer;
const std::string not_shown = HostileGraph{}.said;

INSTANTIATE_TEST_SUITE_P(
    Of1MiB, HostileGraphs,
    testing::Values(
        HostileGraph{{"UnknownTypes"}, probe, [](auto& i) { return table("b" + i, "Sourse" + i); }},
        HostileGraph{{"UnreadKeys"},
                     probe + table("s", "Source", "runs = true\n"),
                     [](auto& i) { return "r" + i + "=1\n"; }},
        HostileGraph{{"UnknownTopLevelKeys"}, "", [](auto& i) { return "b" + i + "=1\n"; }},
        HostileGraph{{"UnknownPlugins"},
                     "plugins = [",
                     [](auto& i) { return "\"libprob" + i + ".so\",\n"; },
                     not_shown,
                     end_of_list},
        HostileGraph{{"UnknownBlocksOfConnections"},
                     timer,
                     [](auto& i) { return connection("u" + i + ".x", "t.x"); }},
        HostileGraph{{"UnknownBlocksNextToKnownOnes"},
                     "",
                     [](auto& i) {
                         return table("n" + long_name(i, 60), "Timer", "interval = 1\n") +
                                connection("m" + long_name(i, 60) + ".x", "t.x");
                     }},
        HostileGraph{{"UnknownBlocksWithLongNames"},
                     "",
                     [](auto& i) {
                         return table("n" + long_name(i, 250), "Timer", "interval = 1\n") +
                                connection(long_name(i, 200) + ".x", long_name(i, 201) + ".y");
                     }},
        HostileGraph{{"UnknownPorts"},
                     probe + table("s", "Sink"),
                     [](auto& i) { return connection("s.a" + i, "s.dou" + i); }},
        HostileGraph{{"WrongBlocks"}, "", [](auto& i) { return table("b" + i, "Timer"); }},
        HostileGraph{{"GoodBlocksAndABadOne"},
                     timer,
                     [](auto& i) { return table("b" + i, "Timer", "interval = 1\n"); },
                     "graph.toml: 1 error\n"},
        HostileGraph{{"KeysInATableOfALongName"},
                     table("t", "Timer", "interval = 1\n") + "[blocks.t." +
                         std::string(400'000, 'k') + "]\n",
                     [](auto& i) { return "k" + i + "=1\n"; },
                     "the key is longer than 1024 bytes"},
        HostileGraph{{"OneObjectOfManyBlocksAndALongName"},
                     probe + table(std::string(400'000, 'n'), "Exporter", "path = \"/a\"\n") +
                         table("t", "Timer"),
                     [](auto& i) { return table("b" + i, "Exporter", "path = \"/a\"\n"); }},
        HostileGraph{{"LongType"},
                     table("t", std::string(1'000'000, 'T')),
                     [](auto& /*i*/) { return std::string(2'000'000, ' '); },
                     "TTT…TTT"},
        HostileGraph{{"MistakesInOneLine"},
                     "plugins = [",
                     [](auto& /*i*/) { return "1,"; },
                     not_shown,
                     end_of_list},
        HostileGraph{{"SamePluginInManySpellings"},
                     "plugins = [\n",
                     [](auto& i) {
                         return "\"" FENWA_TEST_PLUGINS + std::string(1 + std::stoul(i), '/') +
                                "libprobe.so\",\n";
                     },
                     "threw in its entry point: the block type",
                     end_of_list},
        HostileGraph{{"ZeroBytes"}, timer, [](auto& i) { return "z" + i + "=\"\\u0000\"\n"; }}),
    name_of<HostileGraph>);

}  // namespace
}  // namespace test
