// Blocks that try again without end, and what is left for the others.
#include <algorithm>
#include <cstdio>
#include <thread>

#include "tests/integration/load/load_scene.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// The share of a core that the host may take. The blocks' own code takes most of it in a build
/// without optimisation, and far more in one with sanitizers.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double most_load = 1.0;
#elif defined(__OPTIMIZE__)
constexpr double most_load = 0.03;
#else
constexpr double most_load = 0.08;
#endif

class Retries : public LoadScene {
  protected:
    /// One block whose service is absent and one whose service refuses, both for ever, beside a
    /// reader that has published already.
    void start() {
        open("", {"--without", "video"});
        order({"fail", "AddFeatures", "--error", "com.example.Refused"});
        start_host(
            "[blocks.video]\ntype = \"VideoReady\"\nchannel = 0\n"
            "[blocks.buttons]\ntype = \"OnScreenControls\"\nchannel = 0\nwdr = true\n"
            "[blocks.reader]\ntype = \"TemperatureReader\"\nsensor_name = \"main\"\n"
            "delta_chg = 0.5\n");
        ASSERT_TRUE(host().wait_for_text("\"output\""));
        // Both have spent what they may run at once.
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }

    /// Reads all that the host writes in this time.
    void read_for(std::chrono::seconds time) {
        for (const auto end = Clock::now() + time; Clock::now() < end;)
            ASSERT_TRUE(host().wait_for_text("\"log\""));
    }
};

TEST_F(Retries, TakeLittleOfOneCore) {
    start();
    const auto before = processor_time();
    const auto begin = Clock::now();
    read_for(std::chrono::seconds(10));
    const std::chrono::duration<double> passed = Clock::now() - begin;
    const std::chrono::duration<double> used = processor_time() - before;
    const double load = used / passed;
    std::printf("load of the host: %.2f %% of one core\n", load * 100.0);
    EXPECT_LT(load, most_load);
    EXPECT_EQ(host().terminate().code, 0);
}

TEST_F(Retries, LeaveAnothersSignalItsWay) {
    start();
    std::vector<double> milliseconds;
    for (int sample = 0; sample < 200; ++sample) {
        const std::string value = sample % 2 == 0 ? "40" : "50";
        const auto begin = Clock::now();
        set("temperature.main", value);
        ASSERT_TRUE(host().wait_for_text("\"value\":" + value + ".0"));
        const std::chrono::duration<double, std::milli> took = Clock::now() - begin;
        milliseconds.push_back(took.count());
        // Spread over ten seconds, at no fixed place between two tries of the others.
        std::this_thread::sleep_for(std::chrono::milliseconds(40 + sample % 17));
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf("a signal is published after %.2f ms (median), %.2f ms (99th percentile)\n",
                milliseconds[100], milliseconds[198]);
    EXPECT_LT(milliseconds[198], 20.0);
    EXPECT_EQ(host().terminate().code, 0);
}

}  // namespace
}  // namespace test
