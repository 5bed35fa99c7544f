// Each allocation may be the one that gets no memory.
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <random>

#include "tests/integration/host/host_test.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

const std::string graph = FENWA_EXAMPLES "/graphs/camera.toml";

class EachAllocation : public HostTest {
  protected:
    /// Leads `arguments` to its end, again and again, and lets one allocation of each fail: all of
    /// them with FENWA_EVERY_ALLOCATION, otherwise a sample of about 100.
    void expect_line_or_success(const Words& arguments) {
        const auto [sound, allocations] = count_allocations(arguments);
        ASSERT_EQ(sound.code, 0) << sound.err;
        ASSERT_GT(allocations, 1000U);
        const unsigned long step =
            std::getenv("FENWA_EVERY_ALLOCATION") != nullptr ? 1 : allocations / 100;
        const int seed = GTEST_FLAG_GET(random_seed);
        const unsigned long first =
            1 + (seed != 0 ? static_cast<unsigned>(seed) : std::random_device()()) % step;
        unsigned long faults = 0;
        unsigned long survived = 0;
        for (unsigned long number = first; number <= allocations; number += step) {
            const std::string text = std::to_string(number);
            const Ended ended = run_with({{"FENWA_FAILING_ALLOCATION", text}}, arguments);
            SCOPED_TRACE("allocation " + text + ", exit code " + std::to_string(ended.code) + "\n" +
                         ended.err);
            ++faults;
            if (ended.code == 0) {
                ++survived;
                EXPECT_EQ(without_times(ended.out), without_times(sound.out));
            } else {
                EXPECT_EQ(ended.code, 70);
                EXPECT_FALSE(documented.match(ended.err).empty());
            }
        }
        std::cout << faults << " of " << allocations << " allocations failed, from " << first
                  << " on; " << survived << " times the host went on\n";
    }

  private:
    /// The host's own end, beside which its writers may still write a line; that of a child that
    /// tries blocks out; or a block that threw.
    const Pattern documented{
        "(?:.*\n)*fenwa: there is no memory left\n(?:.*\n)*"
        "|(?:.*\n)*.*ended the process in .* with exit code (?:1|70).*\n(?:.*\n)*.*: [0-9]+ "
        "errors?\n"
        "|(?:.*\n)*.*threw in .*: std::bad_alloc.*\n(?:.*\n)*"};

    /// How the host ends while nothing fails, and how many allocations it has.
    std::pair<Ended, unsigned long> count_allocations(const Words& arguments) {
        const std::string file = path("count");
        Ended sound = run_with({{"FENWA_ALLOCATIONS", file}}, arguments);
        unsigned long allocations = 0;
        std::ifstream(file) >> allocations;
        return {std::move(sound), allocations};
    }

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
    // Without log lines: the stream in which a block puts one together swallows the exception.
    expect_line_or_success({"run", graph, "--bus", bus(), "--for", "0.05", "--format", "json",
                            "--events", "output,setup,debug"});
}

}  // namespace
}  // namespace test
