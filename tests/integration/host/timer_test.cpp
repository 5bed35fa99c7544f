#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class Timer : public HostTest {};

TEST_F(Timer, TicksAreConsecutiveAndTheirPeriodIsRightOnAverage) {
    const Ended ended = run("[blocks.t]\ntype = \"Timer\"\ninterval = 20\n", {"--for", "1.05"});
    EXPECT_EQ(ended.code, 0);
    std::istringstream lines(lines_with(ended.out, "\"output\""));
    std::vector<double> times;
    for (std::string line; std::getline(lines, line);) {
        const auto event = nlohmann::json::parse(line);
        times.push_back(event.at("time").get<double>());
        EXPECT_EQ(event.at("value").at("ticks"), times.size());
        EXPECT_EQ(event.at("value").at("period_ms"), 20);
    }
    ASSERT_GT(times.size(), 10U);
    const double period = (times.back() - times.front()) / static_cast<double>(times.size() - 1);
    EXPECT_NEAR(period, 0.020, 0.004);
}

TEST_F(Timer, EachTimerHasItsOwnPeriod) {
    const Ended ended =
        run("[blocks.fast]\ntype = \"Timer\"\ninterval = 10\n[blocks.slow]\n"
            "type = \"Timer\"\ninterval = 100\n[blocks.never]\ntype = \"Timer\"\n"
            "interval = 2147483647\n",
            {"--for", "0.55"});
    EXPECT_EQ(ended.code, 0);
    const auto count = [&ended](const std::string& block) {
        const std::string lines = lines_with(ended.out, "\"" + block + "\"");
        return std::count(lines.begin(), lines.end(), '\n');
    };
    EXPECT_NEAR(static_cast<double>(count("slow")), 5.0, 1.0);
    EXPECT_NEAR(static_cast<double>(count("fast")), 55.0, 15.0);
    EXPECT_EQ(count("never"), 0);
}

}  // namespace
}  // namespace test
