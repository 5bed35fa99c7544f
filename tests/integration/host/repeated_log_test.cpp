#include <algorithm>
#include <regex>
#include <sstream>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// A block that logs the same line again and again when it is started.
class RepeatedLog : public HostTest {
  protected:
    static std::string repeats(int lines, int milliseconds) {
        return probes(
            "[blocks.b]\ntype = \"Stubborn\"\nin = \"start\"\ndoes = \"repeats\"\n"
            "lines = " +
            std::to_string(lines) + "\nms = " + std::to_string(milliseconds) + "\n");
    }
};

TEST_F(RepeatedLog, OfOneBlockIsToldOnceAndThenWithItsNumber) {
    Process host(run_command(repeats(20, 0), {"--bus", bus(), "--format", "text"}));
    // While the host goes on and nobody logs anything.
    ASSERT_TRUE(host.wait_for_error_text("repeated"));
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err,
              "info: b: repeats in start\ninfo: b: no answer\nfenwa: ready\n"
              "info: repeated 19 times in 0.0 s: b: no answer\nfenwa: stopped\n");
}

TEST_F(RepeatedLog, ThatGoesOnIsCountedEachSecondAndAtTheEndAndNoLineIsLost) {
    constexpr long lines = 550;
    Process host(
        run_command(repeats(lines, 4), {"--bus", bus(), "--format", "text", "--for", "0.01"}));
    ASSERT_TRUE(host.wait_for_error_text("info: b: no answer"));
    EXPECT_EQ(host.err().find("repeated"), std::string::npos) << "the line itself comes at once";
    const Ended ended = host.wait();
    EXPECT_EQ(ended.code, 0);
    long told = 0;
    long repeated = 0;
    double longest = 0.0;
    static const std::regex number("info: repeated ([0-9]+) times? in ([0-9.]+) s: b: no answer");
    std::istringstream read(ended.err);
    for (std::string line; std::getline(read, line);) {
        std::smatch match;
        if (line == "info: b: no answer") {
            ++told;
        } else if (std::regex_match(line, match, number)) {
            repeated += std::stol(match[1]);
            longest = std::max(longest, std::stod(match[2]));
        }
    }
    EXPECT_EQ(told + repeated, lines) << ended.err;
    EXPECT_LT(told, lines / 10) << "more than one where the machine stands still";
    EXPECT_GE(longest, 0.9);
    EXPECT_LT(longest, 1.5);
}

TEST_F(RepeatedLog, IsWholeInEventLines) {
    std::string all = "b: repeats in start\n";
    for (int line = 0; line < 20; ++line)
        all += "b: no answer\n";
    EXPECT_EQ(messages(run(repeats(20, 0), {"--for", "0.3"}).out), all);
}

}  // namespace
}  // namespace test
