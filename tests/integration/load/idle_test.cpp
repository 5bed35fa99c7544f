// What a host does while nothing happens.
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tests/integration/load/load_scene.hpp"

namespace test {
namespace {

using namespace std::chrono_literals;

class IdleHost : public LoadScene {
  protected:
    /// How often the threads of the host have gone to sleep so far.
    [[nodiscard]] std::int64_t sleeps() {
        std::int64_t sum = 0;
        const std::string tasks = "/proc/" + std::to_string(host().pid()) + "/task";
        for (const auto& task : std::filesystem::directory_iterator(tasks)) {
            std::ifstream status(task.path() / "status");
            for (std::string word; status >> word;) {
                std::int64_t number = 0;
                if (word == "voluntary_ctxt_switches:" && status >> number)
                    sum += number;
            }
        }
        return sum;
    }
};

TEST_F(IdleHost, IsNotWokenAndWakesForASignal) {
    open("");
    start_host(
        "[blocks.reader]\ntype = \"TemperatureReader\"\nsensor_name = \"main\"\n"
        "delta_chg = 0.5\n");
    ASSERT_TRUE(host().wait_for_text("\"value\":36.5")) << host().err();
    // In the first seconds it looks whether a block hangs, and whether one has not published.
    std::this_thread::sleep_for(17s);
    const std::int64_t before = sleeps();
    std::this_thread::sleep_for(12s);
    EXPECT_EQ(sleeps(), before);
    set("temperature.main", "40");
    EXPECT_TRUE(host().wait_for_text("\"value\":40.0")) << host().err();
}

}  // namespace
}  // namespace test
