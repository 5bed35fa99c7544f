#include "camera/bus/timers.hpp"

#include <gmock/gmock.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "camera/scenario/ramps.hpp"
#include "tests/unit/camera/camera_fixture.hpp"

namespace camera {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TimersTest : public CameraTest {
  protected:
    std::vector<std::string> done_;
    Timers timers_{*event_};
};

TEST_F(TimersTest, RunEachActionOnceInTheOrderOfTheirTimes) {
    timers_.once(milliseconds(20), [this] { done_.push_back("late"); });
    timers_.once({}, [this] { done_.push_back("now"); });
    timers_.once(milliseconds(5), [this] { done_.push_back("soon"); });
    EXPECT_THAT(done_, IsEmpty());
    run_loop(milliseconds(60));
    EXPECT_THAT(done_, ElementsAre("now", "soon", "late"));
}

// Late replies and signals overtake nothing that was to be as late.
TEST_F(TimersTest, TheSameDelayKeepsTheOrder) {
    std::vector<std::string> expected;
    for (int i = 0; i < 50; ++i) {
        expected.push_back(std::to_string(i));
        timers_.once(milliseconds(5), [this, i] { done_.push_back(std::to_string(i)); });
    }
    std::this_thread::sleep_for(milliseconds(10));
    timers_.once({}, [this] { done_.push_back("behind"); });
    expected.push_back("behind");
    run_loop(milliseconds(30));
    EXPECT_EQ(done_, expected);
}

TEST_F(TimersTest, WhatIsDueEarlierGoesFirstHoweverLateTheLoopIs) {
    timers_.once(milliseconds(60), [this] { done_.push_back("third"); });
    timers_.once(milliseconds(40), [this] { done_.push_back("second"); });
    timers_.once(milliseconds(20), [this] { done_.push_back("first"); });
    std::this_thread::sleep_for(milliseconds(100));
    run_loop(milliseconds(30));
    EXPECT_THAT(done_, ElementsAre("first", "second", "third"));
}

TEST_F(TimersTest, WhatIsMoreImportantGoesFirst) {
    timers_.once({}, [this] { done_.push_back("normal"); });
    timers_.once(
        {}, [this] { done_.push_back("first"); }, SD_EVENT_PRIORITY_IMPORTANT);
    run_loop(milliseconds(20));
    EXPECT_THAT(done_, ElementsAre("first", "normal"));
}

TEST_F(TimersTest, WhatIsMoreImportantIsNotDueForThat) {
    timers_.once(
        milliseconds(40), [this] { done_.push_back("important"); }, SD_EVENT_PRIORITY_IMPORTANT);
    timers_.once(milliseconds(5), [this] { done_.push_back("normal"); });
    run_loop(milliseconds(80));
    EXPECT_THAT(done_, ElementsAre("normal", "important"));
}

TEST_F(TimersTest, AnActionMayAddAndForgetOthers) {
    timers_.once({}, [this] {
        done_.push_back("first");
        timers_.clear();
        timers_.once({}, [this] { done_.push_back("second"); });
    });
    timers_.once(milliseconds(5), [this] { done_.push_back("forgotten"); });
    run_loop(milliseconds(30));
    EXPECT_THAT(done_, ElementsAre("first", "second"));
}

TEST_F(TimersTest, ActionsDieWithTheirOwner) {
    {
        Timers gone(*event_);
        gone.once({}, [this] { done_.push_back("gone"); });
    }
    run_loop(milliseconds(20));
    EXPECT_THAT(done_, IsEmpty());
}

// A time_t of 32 bits, as on ARM, ends before the longest duration of a text does.
TEST_F(TimersTest, TheLongestDelayDoesNotEndTheLoop) {
    timers_.once(std::chrono::seconds(UINT32_MAX), [this] { done_.push_back("late"); });
    timers_.once(std::chrono::microseconds::max(), [this] { done_.push_back("never"); });
    run_loop(milliseconds(5));
    EXPECT_THAT(done_, IsEmpty());
}

class RampsTest : public CameraTest {
  protected:
    void start(const std::string& name, double target, double over, double from) {
        ramps_.start({name, target, Seconds(over)}, from);
    }

    std::vector<std::string> moves_;
    std::chrono::steady_clock::time_point arrival_;
    Ramps ramps_{*event_,
                 [this](const std::string& name, double value) {
                     moves_.push_back(name + ' ' + common::Json(value).dump());
                 },
                 [this] {
                     moves_.push_back("arrived");
                     arrival_ = std::chrono::steady_clock::now();
                 }};
};

TEST_F(RampsTest, ArriveExactlyAndRoundTheNumberOfStepsUp) {
    start("a", 0.1, 0.21, 0.7);
    run_loop(milliseconds(200));
    ASSERT_EQ(moves_.size(), 4U);
    EXPECT_EQ(moves_[2], "a 0.1");
}

TEST_F(RampsTest, WithoutATimeOrAPlaceToStartFromGoStraight) {
    start("a", 5.0, 0.0, 1.0);
    start("b", 6.0, 10.0, std::numeric_limits<double>::quiet_NaN());
    start("c", 7.0, 10.0, std::numeric_limits<double>::infinity());
    run_loop(milliseconds(200));
    EXPECT_THAT(moves_, ElementsAre("a 5.0", "b 6.0", "c 7.0", "arrived"));
}

TEST_F(RampsTest, ASecondRampOfAValueTakesThePlaceOfTheFirst) {
    const auto begin = std::chrono::steady_clock::now();
    start("a", 20.0, 1.0, 10.0);
    start("a", 0.0, 0.2, 10.0);
    run_loop(milliseconds(200));
    EXPECT_THAT(moves_, ElementsAre("a 5.0", "a 0.0", "arrived"));
    EXPECT_GE(arrival_ - begin, milliseconds(200))
        << "it moves no faster for there having been another";
}

}  // namespace
}  // namespace camera
