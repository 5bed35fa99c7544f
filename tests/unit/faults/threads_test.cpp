#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/block_fixture.hpp"
#include "tests/unit/faults/block_context.hpp"
#include "tests/unit/faults/life.hpp"

namespace faults {
namespace {

namespace effect = support::effect;

struct Case : support::NamedCase {
    BlockContext (*context)();
    Life::Framework framework = Life::Framework::parallel;
};

// PrioritizedTextOverlaySetter does nothing in its run. Answers come while no block runs.
const Case cases[] = {
    // Their state and queues are plain members, which every message writes.
    {{"TemperatureReader"}, reader, Life::Framework::serialised},
    {{"TemperatureMonitor"}, temperature_monitor, Life::Framework::serialised},
    {{"OnScreenControls"}, controls, Life::Framework::serialised},
    // What their traffic writes is atomic.
    {{"PowerConsumer"}, consumer},
    {{"PowerMonitor"}, power_monitor},
    {{"VideoReady"}, video},
};

/// What the block sends, answers and publishes from a restart of its service on.
std::vector<std::string> deeds_after_restart(Life& life, const BlockContext& context) {
    (void)life.recorders().journal->take(effect::all);
    life.restart_service(":1.6", ":1.7");
    context.traffic(life, 2);
    life.settle();
    return life.take_deeds();
}

class EachBlockOnTwoThreadsTest : public testing::TestWithParam<Case> {};

// A race shows under the thread sanitizer; what it leaves behind shows everywhere.
TEST_P(EachBlockOnTwoThreadsTest, LosesNothingWhereAnotherThreadRunsIt) {
    constexpr int rounds = 100;
    const auto journal = support::EffectJournal::shared();
    const BlockContext context = GetParam().context();
    std::vector<std::string> alone;
    {
        Life life(context, [](const Call& /*call*/) { return 0; });
        life.build();
        life.start();
        life.settle();
        alone = deeds_after_restart(life, context);
        EXPECT_NE(alone, std::vector<std::string>{});
        life.stop();
        life.destroy();
        (void)journal->take(effect::all);
    }
    const BlockContext again = GetParam().context();
    Life life(again, [](const Call& /*call*/) { return 0; });
    life.build();
    life.start();
    life.run_on_another_thread(GetParam().framework);
    for (int round = 0; round < rounds; ++round) {
        // Not all of it is awaited: the block runs while the next message comes.
        again.traffic(life, round);
        if (round % 10 == 0)
            life.restart_service(":1.5", ":1.6");
    }
    life.settle();
    life.join();
    EXPECT_EQ(deeds_after_restart(life, again), alone);
    life.stop();
    life.destroy();
    (void)journal->take(effect::all);
}

INSTANTIATE_TEST_SUITE_P(Types, EachBlockOnTwoThreadsTest, testing::ValuesIn(cases),
                         support::case_name<Case>);

}  // namespace
}  // namespace faults
