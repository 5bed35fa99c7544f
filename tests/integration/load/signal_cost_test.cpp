// What one signal to one block costs, in instructions, beside more and more other blocks.
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include "tests/integration/load/load_scene.hpp"

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which valgrind cannot run

namespace test {
namespace {

/// Instructions by the file that they are in, "fenwa" or "libc.so.6".
using Instructions = std::map<std::string, double>;

/// Reads what callgrind has written: each function's own cost counts for the file that it is in.
Instructions read_callgrind(const std::string& path) {
    std::map<std::string, std::string> names;  // by callgrind's number for them
    std::string object;
    Instructions instructions;
    std::ifstream file(path);
    bool inclusive = false;  // of the call that the line before was about
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("ob=") || line.starts_with("cob=")) {
            const std::size_t open = line.find('(');
            const std::size_t close = line.find(')');
            const std::string number = line.substr(open, close - open);
            if (line.size() > close + 2) {
                const std::string path_of_object = line.substr(close + 2);
                names[number] = path_of_object.substr(path_of_object.rfind('/') + 1);
            }
            if (line.front() == 'o')
                object = names[number];
        } else if (line.starts_with("calls=")) {
            inclusive = true;
        } else if (!line.empty() && std::string("0123456789+-*").find(line[0]) != line.npos) {
            std::istringstream numbers(line);
            std::string place;
            double cost = 0.0;
            numbers >> place >> cost;
            if (!inclusive)
                instructions[object] += cost;
            inclusive = false;
        }
    }
    return instructions;
}

/// What is ours to keep small; the C library's functions are sd-bus's tools, too.
double of_ours(const Instructions& all) {
    double sum = 0.0;
    for (const auto& [object, count] : all)
        sum += object.starts_with("fenwa") || object.starts_with("libfenwa") ? count : 0.0;
    return sum;
}

class SignalCost : public LoadScene {
  protected:
    /// Instructions that the host takes for one signal to a reader, beside so many blocks that
    /// follow another service.
    Instructions measure(int others) {
        std::string graph =
            "[blocks.reader]\ntype = \"TemperatureReader\"\nsensor_name = \"main\"\n"
            "delta_chg = 0.5\n";
        for (int i = 0; i < others; ++i)
            graph += "[blocks.other" + std::to_string(i) +
                     "]\ntype = \"PowerMonitor\"\nrequested_power = 5.0\n";
        open("<limit name=\"max_match_rules_per_connection\">4096</limit>");
        const std::string counted = (folder().path() / "callgrind.out").string();
        start_host(graph, {"valgrind", "--quiet", "--tool=callgrind", "--instr-atstart=no",
                           "--callgrind-out-file=" + counted});
        EXPECT_TRUE(host().wait_for_text("\"value\":36.5")) << host().err();
        signal(2);  // what is done at the first time only
        count("on");
        signal(signals);
        count("off");
        EXPECT_EQ(host().terminate().code, 0);
        Instructions instructions = read_callgrind(counted);
        for (auto& [object, number] : instructions)
            number /= signals;
        return instructions;
    }

  private:
    static constexpr int signals = 50;

    void count(const std::string& on_or_off) {
        const Ended ended =
            run_program({"callgrind_control", "-i", on_or_off, std::to_string(host().pid())});
        ASSERT_EQ(ended.code, 0) << ended.err;
    }

    void signal(int times) {
        for (int i = 0; i < times; ++i) {
            const std::string value = i % 2 == 0 ? "40" : "50";
            set("temperature.main", value);
            ASSERT_TRUE(host().wait_for_text("\"output\""));
        }
    }
};

TEST_F(SignalCost, OfOursDoesNotGrowWithTheNumberOfOtherBlocks) {
    std::map<int, Instructions> costs;
    for (const int others : {1, 10, 200})
        costs[others] = measure(others);
    std::printf("instructions for one signal beside 1, 10 and 200 other blocks:\n");
    for (const auto& [object, first] : costs[1])
        std::printf("%30s %9.0f %9.0f %9.0f\n", object.c_str(), first, costs[10][object],
                    costs[200][object]);
    const double first = of_ours(costs[1]);
    std::printf("%30s %9.0f %9.0f %9.0f\n", "ours together", first, of_ours(costs[10]),
                of_ours(costs[200]));
    EXPECT_GT(first, 1000.0);
    for (const int others : {10, 200})
        EXPECT_NEAR(of_ours(costs[others]) / first, 1.0, 0.03) << others;
}

}  // namespace
}  // namespace test

#endif
