// Each allocation may be the one that gets no memory.
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <random>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

const std::string graph = FENWA_EXAMPLES "/graphs/camera.toml";

class EachAllocation : public HostTest {
  protected:
    /// Leads `arguments` to its end, again and again, and lets one allocation of each fail: all of
    /// them with FENWA_EVERY_ALLOCATION, otherwise a sample of about 100.
    void expect_line_or_success(const Words& arguments) {
        const std::string count = path("count");
        Ended sound = run_with({{"FENWA_ALLOCATIONS", count}}, arguments);
        ASSERT_EQ(sound.code, 0) << sound.err;
        unsigned long allocations = 0;
        std::ifstream(count) >> allocations;
        ASSERT_GT(allocations, 1000U);
        const unsigned long step =
            std::getenv("FENWA_EVERY_ALLOCATION") != nullptr ? 1 : allocations / 100;
        const unsigned long first = 1 + std::random_device()() % step;
        unsigned long faults = 0;
        unsigned long survived = 0;
        for (unsigned long number = first; number <= allocations; number += step) {
            const std::string text = std::to_string(number);
            const Ended ended = run_with({{"FENWA_FAILING_ALLOCATION", text}}, arguments);
            SCOPED_TRACE("allocation " + text + ", exit code " + std::to_string(ended.code) + "\n" +
                         ended.err);
            ++faults;
            if (ended.code == 0)
                ++survived;
            else
                EXPECT_TRUE(ended.code == 70 && ended.err.ends_with('\n'));
        }
        std::cout << faults << " of " << allocations << " allocations failed, from " << first
                  << " on; " << survived << " times the host went on\n";
    }

  private:
    static Ended run_with(const Environment& environment, const Words& arguments) {
        Environment all = environment;
        all["LD_PRELOAD"] = FENWA_FAILING_ALLOCATION_LIBRARY;
        return fenwa(arguments, all);
    }
};

TEST_F(EachAllocation, ThatFailsEndsACheckWithALine) {
    expect_line_or_success({"check", graph});
}

TEST_F(EachAllocation, ThatFailsEndsARunWithALine) {
    expect_line_or_success({"run", graph, "--bus", bus(), "--for", "0.05"});
}

}  // namespace
}  // namespace test
