// Many blocks in one host, on one connection.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <sstream>

#include "tests/integration/load/load_scene.hpp"
#include "tests/support/json_printing.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;
using ::testing::HasSubstr;

/// What the system bus allows one connection unless its configuration says otherwise.
constexpr const char* default_limits =
    "<limit name=\"max_match_rules_per_connection\">512</limit>"
    "<limit name=\"max_replies_per_connection\">128</limit>";
constexpr const char* raised_limits =
    "<limit name=\"max_match_rules_per_connection\">4096</limit>"
    "<limit name=\"max_replies_per_connection\">1024</limit>";

class Scale : public LoadScene {
  protected:
    /// Starts a host with so many readers, each of a sensor of its own, at 20 degrees.
    void start_readers(int count, const char* limits) {
        std::string sensors;
        std::string readers;
        for (int i = 0; i < count; ++i) {
            const std::string name = "s" + std::to_string(i);
            sensors += "[[sensors]]\nname = \"" + name + "\"\nid = " + std::to_string(i) +
                       "\ntemperature = 20.0\n";
            readers += "[blocks." + name + "]\ntype = \"TemperatureReader\"\nsensor_name = \"" +
                       name + "\"\ndelta_chg = 0.5\n";
        }
        open(limits, {"--config", folder().write("camera.toml", sensors)});
        begin_ = Clock::now();
        start_host(readers);
    }

    /// Waits until so many blocks have published a first value.
    /// @returns how long that took from the host's start.
    std::chrono::milliseconds until_published(std::size_t count) {
        std::set<std::string> blocks;
        const auto is_last = [&](const std::string& line) {
            const auto event = common::parse_json(line, "the text");
            if (event.at("event") == "output")
                blocks.insert(event.at("block"));
            return blocks.size() == count;
        };
        EXPECT_TRUE(host().wait_for_line(is_last)) << blocks.size() << " have published";
        const auto took =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin_);
        std::printf("%zu readers publish after %ld ms\n", count, static_cast<long>(took.count()));
        return took;
    }

  private:
    Clock::time_point begin_;
};

TEST_F(Scale, TwoHundredReadersPublishOnABusWithItsDefaultLimits) {
    start_readers(200, default_limits);
    EXPECT_LT(until_published(200), std::chrono::seconds(3));
    const Ended ended = host().terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
}

TEST_F(Scale, ThousandReadersPublishOnABusWithRaisedLimits) {
    start_readers(1000, raised_limits);
    EXPECT_LT(until_published(1000), std::chrono::seconds(3));
    const Ended ended = host().terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
}

TEST_F(Scale, LimitThatIsHitIsNamedAndTheReadersBelowItGoOn) {
    start_readers(300, default_limits);
    until_published(300);
    EXPECT_TRUE(host().wait_for_error_text("max_match_rules_per_connection=512"));
    // Below the limit are those that got both their matches.
    for (const std::string sensor : {"s0", "s100", "s200"}) {
        set("temperature." + sensor, "33");
        EXPECT_TRUE(host().wait_for_text("\"block\":\"" + sensor +
                                         "\",\"port\":\"temperature_out\",\"type\":\"double\","
                                         "\"value\":33.0"));
    }
    const Ended ended = host().terminate();
    EXPECT_EQ(ended.code, 0);
    std::istringstream lines(ended.err);
    std::set<std::string> told;
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(told.insert(line).second) << "twice: " << line;
        EXPECT_THAT(line, testing::MatchesRegex(
                              "fenwa: block 's[0-9]*' .TemperatureReader. has reached a limit of "
                              "the bus: Connection .* is not allowed to add more match rules .*"
                              "max_match_rules_per_connection=512."));
    }
    // Each of them has one match for the owner of the name and one for the signal.
    EXPECT_EQ(told.size(), 2U * 300U - 512U);
}

}  // namespace
}  // namespace test
