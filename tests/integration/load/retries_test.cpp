// Blocks that try again without end, and what is left for the others.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <thread>

#include "tests/integration/load/load_scene.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// The share of a core that the host may take.
constexpr double most_load = 0.03;

class Retries : public LoadScene, public testing::WithParamInterface<int> {
  protected:
    /// So many pairs of a block whose service is absent and one whose service refuses, all for
    /// ever, beside a reader that has published already.
    void start(int pairs) {
        open("<limit name=\"max_match_rules_per_connection\">4096</limit>", {"--without", "video"});
        handle({"fail", "AddFeatures", "--error", "com.example.Refused"});
        // So few runs at once that they are over soon, however many blocks there are.
        std::string graph = "[host]\nrun_burst = 16\n";
        for (int i = 0; i < pairs; ++i) {
            const std::string channel = std::to_string(i);
            graph += "[blocks.video" + channel + "]\ntype = \"VideoReady\"\nchannel = " + channel +
                     "\n[blocks.buttons" + channel +
                     "]\ntype = \"OnScreenControls\"\nwdr = true\nchannel = " + channel + "\n";
        }
        start_host(graph +
                   "[blocks.reader]\ntype = \"TemperatureReader\"\nsensor_name = \"main\"\n"
                   "delta_chg = 0.5\n");
        ASSERT_TRUE(host().wait_for_text("\"output\""));
        // What nobody reads meanwhile would fill the host's buffer, and the lines of the first
        // sample would be dropped.
        if (pairs > 0)
            read_for(std::chrono::seconds(1 + pairs / 50));
    }

    /// The share of a core that the host takes over ten seconds.
    double load();
    /// How long a changed temperature takes until it is published, in milliseconds.
    double publishing_time(int sample);
    /// The 99th percentile of how long a signal takes until it is published, in milliseconds, over
    /// some ten seconds.
    double latency();
    /// The 95th percentile of an exchange of signals in which each one follows the last at once;
    /// the 99th, which it prints, is what others do on the machine where that is busy.
    double tight_exchange();

    /// Reads all that the host writes in this time.
    void read_for(std::chrono::seconds time) {
        for (const auto end = Clock::now() + time; Clock::now() < end;)
            ASSERT_TRUE(host().wait_for_text("\"log\""));
    }
};

TEST_P(Retries, TakeLittleOfOneCore) {
    start(GetParam());
    EXPECT_LT(least_of_rounds(most_load, [this] { return load(); }), most_load);
    EXPECT_EQ(host().terminate().code, 0);
}

TEST_P(Retries, LeaveAnothersSignalItsWay) {
    start(GetParam());
    constexpr double most_milliseconds = 20.0;
    EXPECT_LT(least_of_rounds(most_milliseconds, [this] { return latency(); }), most_milliseconds);
    EXPECT_EQ(host().terminate().code, 0);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // whose time is not the host's
INSTANTIATE_TEST_SUITE_P(Pairs, Retries, testing::Values(1, 8, 500),
                         [](const auto& pairs) { return std::to_string(pairs.param); });
#endif
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Retries);

using SpentBudget = Retries;

TEST_F(SpentBudget, DelaysATightExchangeOfSignalsByNoMoreThanItsPace) {
    start(0);
    // One exchange takes 5 ms at 200 runs a second; the rest is for the way there and back.
    constexpr double most_milliseconds = 7.0;
    EXPECT_LT(least_of_rounds(most_milliseconds, [this] { return tight_exchange(); }),
              most_milliseconds);
    EXPECT_EQ(host().terminate().code, 0);
}

double Retries::publishing_time(int sample) {
    const std::string value = sample % 2 == 0 ? "40" : "50";
    return LoadScene::publishing_time("temperature.main", value, "\"value\":" + value + ".0");
}

double Retries::tight_exchange() {
    std::vector<double> milliseconds;
    for (int sample = 0; sample < 600; ++sample)
        milliseconds.push_back(publishing_time(sample));
    // The first ones were within the budget.
    milliseconds.erase(milliseconds.begin(), milliseconds.begin() + 100);
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf("an exchange takes %.2f ms (median), %.2f ms (99th percentile)\n",
                milliseconds[250], milliseconds[494]);
    return milliseconds[475];
}

double Retries::load() {
    const auto before = processor_time();
    const auto begin = Clock::now();
    read_for(std::chrono::seconds(10));
    const std::chrono::duration<double> passed = Clock::now() - begin;
    const std::chrono::duration<double> used = processor_time() - before;
    std::printf("load of the host: %.2f %% of one core\n", used / passed * 100.0);
    return used / passed;
}

double Retries::latency() {
    std::vector<double> milliseconds;
    for (int sample = 0; sample < 200; ++sample) {
        milliseconds.push_back(publishing_time(sample));
        // Spread over ten seconds, at no fixed place between two tries of the others.
        std::this_thread::sleep_for(std::chrono::milliseconds(40 + sample % 17));
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf("a signal is published after %.2f ms (median), %.2f ms (99th percentile)\n",
                milliseconds[100], milliseconds[198]);
    return milliseconds[198];
}

}  // namespace
}  // namespace test
