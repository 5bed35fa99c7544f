// Blocks whose match is refused for ever: what they keep, and what they cost.
#include <cstdio>
#include <thread>

#include "tests/integration/load/load_scene.hpp"

namespace test {
namespace {

constexpr const char* matches_denied =
    "<policy context=\"mandatory\"><deny send_destination=\"org.freedesktop.DBus\" "
    "send_interface=\"org.freedesktop.DBus\" send_member=\"AddMatch\"/></policy>";

class RefusedMatches : public LoadScene {
  protected:
    void start_readers(int count, const std::string& host_settings) {
        std::string graph = host_settings;
        for (int i = 0; i < count; ++i)
            graph += "[blocks.r" + std::to_string(i) +
                     "]\ntype = \"TemperatureReader\"\nsensor_name = \"main\"\n"
                     "delta_chg = 0.5\n";
        start_host(graph);
    }

    /// Reads so many log lines of the host.
    void read_lines(int count) {
        for (int i = 0; i < count; ++i)
            ASSERT_TRUE(host().wait_for_text("Error when adding match for NameOwnerChanged"));
    }
};

TEST_F(RefusedMatches, MakeNothingGrowAtFullPaceWhereAPolicyRefusesAll) {
    for (const int readers : {1, 3}) {
        open_bus(matches_denied);
        start_readers(readers, "[host]\nrun_burst = 0\n");
        read_lines(2000);
        const long before = memory();
        read_lines(10'000);
        const long after = memory();
        std::printf("%d readers: %ld kB after 2,000 refused matches, %ld kB after 12,000\n",
                    readers, before, after);
        // Each would keep 700 bytes.
        EXPECT_LT(after, before + 1000);
        EXPECT_EQ(host().terminate().code, 0);
    }
}

TEST_F(RefusedMatches, TryRarelyWhereOthersHaveTheSame) {
    open("<limit name=\"max_match_rules_per_connection\">100</limit>", {});
    start_readers(600, "");
    std::this_thread::sleep_for(std::chrono::seconds(3));
    const long before = memory();
    const auto time = processor_time();
    std::this_thread::sleep_for(std::chrono::seconds(20));
    const long after = memory();
    const auto used = processor_time() - time;
    std::printf("500 refused readers: %ld kB, %ld kB after 20 s, which took %ld ms\n", before,
                after, static_cast<long>(used.count()));
    // 1 MB an hour is 6 kB; the allocator takes no less than 132 at once.
    EXPECT_LE(after, before + 132);
    EXPECT_LT(used, std::chrono::milliseconds(200));
    EXPECT_EQ(host().terminate().code, 0);
}

}  // namespace
}  // namespace test
