#include <gtest/gtest.h>

#include <stdexcept>

#include "fenwa/fenwa.hpp"
#include "fenwa/testkit/testkit.hpp"

namespace {

using Fenwa::BlockConfiguration;
using Fenwa::testkit::BlockDriver;
using Fenwa::testkit::DebugEntry;
using Fenwa::testkit::DebugRecorder;
using Fenwa::testkit::LogLine;
using Fenwa::testkit::LogRecorder;
using Fenwa::testkit::OtherValue;
using Fenwa::testkit::Output;
using Fenwa::testkit::Setting;

using Outputs = std::vector<Output>;

struct Point {
    int x = 0;
};

}  // namespace

template <>
inline constexpr const char* Fenwa::datatype_path<Point> = "/acme/geometry.p/point";

namespace {

/// Adds "step" to the sum of what comes in, and has one of everything.
class Adder : public Fenwa::Block {
  public:
    Adder(std::string name, const BlockConfiguration& config)
        : Fenwa::Block(std::move(name), config),
          step_(config.getInt("step", 1)),
          in_(Fenwa::add_inport<int>(*this, "in")),
          quiet_(Fenwa::add_inport<double>(*this, "quiet", false)),
          sum_(Fenwa::add_outport<int>(*this, "sum")),
          point_(Fenwa::add_outport<Point>(*this, "point")),
          again_(make_eventport("again")) {}
    ~Adder() override { Fenwa::ilog(4) << "gone"; }

    BlockConfiguration setup(const BlockConfiguration& config) override {
        return {{"termination_cfg.inports", {"extra"}},
                {"termination_cfg.types", {Fenwa::datatype_path<bool>}},
                {"termination_cfg.extra_def", true},
                {"step", config.getInt("step", 1)}};
    }
    void start() override { sum_->publish(step_); }
    void stop() override { sum_->publish(0); }
    bool run() override {
        if (in_->value() < 0)
            throw std::runtime_error("negative");
        if (in_->is_triggered())
            sum_->publish(sum_->value + in_->value() + step_);
        if (again_->is_triggered())
            point_->publish({7});
        Fenwa::debug_data().set_value("adder.quiet", quiet_->value());
        return true;
    }
    void reconfigure(const BlockConfiguration& before, const BlockConfiguration& after) override {
        if (after.getInt("step", 1) == 0)
            throw Fenwa::ConfigurationError("step", "int but 0", "the integer 0");
        step_ = after.getInt("step", 1);
        Fenwa::ilog(2) << "from " << before.getInt("step", 1) << " to " << step_ << ", "
                       << after.getString("name", "none");
    }

  private:
    int step_;
    Fenwa::InPort<int>* in_;
    Fenwa::InPort<double>* quiet_;
    Fenwa::OutPort<int>* sum_;
    Fenwa::OutPort<Point>* point_;
    Fenwa::EventPort* again_;
};

class BlockDriverTest : public testing::Test {
  protected:
    LogRecorder log;
    DebugRecorder debug;
    BlockDriver<Adder> block{{{"step", 2}}};
};

TEST_F(BlockDriverTest, GivesTheSettingsOfTheSetupWithItsTerminatedInput) {
    EXPECT_EQ(block.setup(),
              (std::vector<Setting>{
                  {"termination_cfg.inports", std::vector<std::string>{"extra"}},
                  {"termination_cfg.types", std::vector<std::string>{"/prefix/well-known.b/bool"}},
                  {"termination_cfg.extra_def", true},
                  {"step", std::int64_t{2}}}));
    EXPECT_EQ(BlockDriver<Adder>().setup().back(), (Setting{"step", std::int64_t{1}}));
}

TEST_F(BlockDriverTest, RunsTheBlockOnlyWhenItIsWoken) {
    EXPECT_FALSE(block.run());
    block.feed("in", 5);
    EXPECT_TRUE(block.woken());
    EXPECT_TRUE(block.run());
    EXPECT_FALSE(block.woken());
    EXPECT_FALSE(block.run());
    EXPECT_EQ(block.take_outputs(), (Outputs{{"sum", 7}}));
}

TEST_F(BlockDriverTest, MakesOneRunOfSeveralFeedsAndReadsTheLastValue) {
    block.feed("in", 5);
    block.feed("in", 6);
    EXPECT_TRUE(block.run());
    EXPECT_EQ(block.take_outputs(), (Outputs{{"sum", 8}}));
}

TEST_F(BlockDriverTest, DoesNotRunTheBlockForAnInputThatDoesNotTrigger) {
    block.feed("quiet", 1.5);
    EXPECT_FALSE(block.run());
    block.fire("again");
    EXPECT_TRUE(block.run());
    EXPECT_EQ(debug.take(), (std::vector<DebugEntry>{{"adder.quiet", 1.5}}));
}

TEST_F(BlockDriverTest, TakesTheOutputsOfEachOperationOnce) {
    block.start();
    block.fire("again");
    EXPECT_TRUE(block.run());
    block.stop();
    EXPECT_EQ(block.take_outputs(),
              (Outputs{{"sum", 2}, {"point", OtherValue{"/acme/geometry.p/point"}}, {"sum", 0}}));
    EXPECT_EQ(block.take_outputs(), Outputs{});
    EXPECT_EQ(block.value<Point>("point").x, 7);
    EXPECT_EQ(block.value<int>("sum"), 0);
}

TEST_F(BlockDriverTest, ReconfiguresWithTheOldSettingsAndThenWithTheNewOnesAlone) {
    block.reconfigure({{"step", 3}});
    block.reconfigure({{"name", {"x"}}});
    EXPECT_EQ(log.take(), (std::vector<LogLine>{{2, "from 2 to 3, none"},
                                                {2, "from 3 to 3, none"},
                                                {2, "from 3 to 3, x"},
                                                {2, "from 3 to 3, x"}}));
    EXPECT_THROW(block.reconfigure({{"step", 0}}), Fenwa::ConfigurationError);
    block.reconfigure({});
    EXPECT_EQ(log.take().front().text, "from 3 to 3, x") << "a refused change changes nothing";
}

TEST_F(BlockDriverTest, LetsAnExceptionOutAndEndsTheRun) {
    block.feed("in", -1);
    EXPECT_THROW((void)block.run(), std::runtime_error);
    EXPECT_FALSE(block->get_inport("in")->is_triggered());
    EXPECT_FALSE(block.run());
}

TEST_F(BlockDriverTest, SaysWhatIsWrongWithAPort) {
    const auto message_of = [](const auto& act) -> std::string {
        try {
            act();
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "nothing";
    };
    EXPECT_EQ(message_of([&] { block.feed("out", 1); }), "the block has no input 'out'");
    EXPECT_EQ(message_of([&] { block.feed("in", 1.5); }),
              "the port 'in' has the datatype /prefix/well-known.i/int, not "
              "/prefix/well-known.d/double");
    EXPECT_EQ(message_of([&] { (void)block.value<int>("in"); }), "the block has no output 'in'");
    EXPECT_EQ(message_of([&] { (void)block.value<bool>("sum"); }),
              "the port 'sum' has the datatype /prefix/well-known.i/int, not "
              "/prefix/well-known.b/bool");
    EXPECT_EQ(message_of([&] { block.fire("in"); }), "the block has no event port 'in'");
}

TEST_F(BlockDriverTest, DestroysTheBlockWhenItIsTold) {
    block.destroy();
    EXPECT_EQ(log.take(), (std::vector<LogLine>{{4, "gone"}}));
}

TEST_F(BlockDriverTest, WaitsForWhatARunDoesAndNoLonger) {
    block.feed("in", 1);
    EXPECT_TRUE(block.wait_until([this] { return block.value<int>("sum") == 3; }));
    EXPECT_FALSE(block.wait_until([] { return false; }, std::chrono::milliseconds(20)));
}

/// A class without a first value for its number.
class Forgetful : public Fenwa::Block {
  public:
    using Fenwa::Block::Block;
    int number;
};

TEST(UsedMemoryTest, ShowsAMemberWithoutAFirstValue) {
    const BlockConfiguration none;
    BlockDriver<Forgetful> first(none);
    BlockDriver<Forgetful> second(none);
    EXPECT_NE(first->number, second->number);
}

TEST(PrinterTest, WritesEachKindAsAPersonDoes) {
    using testing::PrintToString;
    EXPECT_EQ(PrintToString(Output{"out", 2.5}), "out = 2.5");
    EXPECT_EQ(PrintToString(Output{"out", 0.1F}), "out = 0.1");
    EXPECT_EQ(PrintToString(Output{"out", true}), "out = true");
    EXPECT_EQ(PrintToString(Output{"out", -3}), "out = -3");
    EXPECT_EQ(PrintToString(
                  Output{"out", Fenwa::datatype_timersource{4, std::chrono::milliseconds(500)}}),
              "out = tick 4 of 500 ms");
    EXPECT_EQ(PrintToString(Output{"out", OtherValue{"/a.b/c"}}), "out = </a.b/c>");
    EXPECT_EQ(PrintToString(Setting{"k", std::vector<std::string>{"a", "b"}}), R"(k = ["a", "b"])");
    EXPECT_EQ(PrintToString(Setting{"k", std::string("a")}), R"(k = "a")");
    EXPECT_EQ(PrintToString(DebugEntry{"k", std::string("a")}), R"(k = "a")");
    EXPECT_EQ(PrintToString(DebugEntry{"k", std::int32_t{5}}), "k = 5");
    EXPECT_EQ(PrintToString(LogLine{1, "text"}), "error: text");
    EXPECT_EQ(PrintToString(LogLine{2, "text"}), "warning: text");
    EXPECT_EQ(PrintToString(LogLine{4, "text"}), "information: text");
    EXPECT_EQ(PrintToString(LogLine{3, "text"}), "level 3: text");
    EXPECT_EQ(PrintToString(Fenwa::testkit::Call{"a.B", "/c", "a.I", "Do", "i 3"}),
              "a.B /c a.I Do(i 3)");
}

}  // namespace
