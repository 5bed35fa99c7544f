// PrioritizedTextOverlaySetter and a service on a bus. What sd-bus is told is in
// prioritized_text_overlay_setter_test.cpp.
#include <gtest/gtest.h>

#include <optional>

#include "fenwa/testkit/testkit.hpp"
#include "src/blocks/video/prioritized_text_overlay_setter.hpp"

namespace {

using blocks::PrioritizedTextOverlaySetter;
using Fenwa::testkit::BlockDriver;
using Fenwa::testkit::Call;
using Fenwa::testkit::LogLine;

using Calls = std::vector<Call>;

Call call(const std::string& member, const std::string& arguments) {
    return {"com.tarlo.PrioritizedTextOverlay", "/com/tarlo/PrioritizedTextOverlay/1",
            "com.tarlo.PrioritizedTextOverlay", member, arguments};
}

TEST(PrioritizedTextOverlaySetterKeysTest, AreATextAndAWholeNumber) {
    const auto refused_key = [](const Fenwa::BlockConfiguration& config) -> std::string {
        try {
            const BlockDriver<PrioritizedTextOverlaySetter> block(config);
        } catch (const Fenwa::ConfigurationError& error) {
            return error.key();
        }
        return "none";
    };
    EXPECT_EQ(refused_key({{"prio_text_overlay", 5}}), "prio_text_overlay");
    EXPECT_EQ(refused_key({{"prio_text_overlay", {"two", "texts"}}}), "prio_text_overlay");
    EXPECT_EQ(refused_key({{"duration", 1.5}}), "duration");
    EXPECT_EQ(refused_key({{"duration", {"5"}}}), "duration");
    EXPECT_EQ(refused_key({{"duration", std::int64_t{1} << 32}}), "duration");
    EXPECT_EQ(refused_key({{"prio_text_overlay", {"text"}}, {"duration", 5}}), "none");
}

class TextOnABusTest : public testing::Test {
  protected:
    /// Builds and starts a block with the text "Smoke", and waits until the service was asked.
    void show(int duration) {
        block.emplace(bus.tools(), Fenwa::BlockConfiguration{{"prio_text_overlay", {"Smoke"}},
                                                             {"duration", duration}});
        block->start();
        EXPECT_TRUE(block->wait_until([this] { return service.call_count() != 0; }));
        // The answer was sent by the thread that has counted the call, or is about to be.
        EXPECT_FALSE(block->wait_until([] { return false; }, std::chrono::milliseconds(50)));
    }

    Fenwa::testkit::PrivateBus bus;
    Fenwa::testkit::FakeService service{bus, "com.tarlo.PrioritizedTextOverlay"};
    Fenwa::testkit::LogRecorder log;
    std::optional<BlockDriver<PrioritizedTextOverlaySetter>> block;
};

TEST_F(TextOnABusTest, IsTakenAwayWithTheBlockWhenItHasNoLimit) {
    service.answer("Set");
    service.answer("Unset");
    show(0);
    EXPECT_EQ(service.take_calls(), Calls{call("Set", R"(s "Smoke", u 0)")});
    block->destroy();
    EXPECT_EQ(service.take_calls(), Calls{call("Unset", R"(s "Smoke")")});
    EXPECT_EQ(log.take(), std::vector<LogLine>{});
}

TEST_F(TextOnABusTest, StaysWhenItHasALimit) {
    service.answer("Set");
    show(5);
    block->destroy();
    EXPECT_EQ(service.take_calls(), Calls{call("Set", R"(s "Smoke", u 5)")});
}

TEST_F(TextOnABusTest, IsTakenAwayAlsoWhenTheServiceHadRefusedIt) {
    service.refuse("Set", "a.Error", "no");
    service.refuse("Unset", "a.Error", "never set");
    show(0);
    block->destroy();
    EXPECT_EQ(service.take_calls().back(), call("Unset", R"(s "Smoke")"));
    EXPECT_EQ(log.take(),
              (std::vector<LogLine>{{2, "Could not unset prioritized text overlay: never set"}}));
}

TEST_F(TextOnABusTest, IsNotTakenAwayWhenNobodyHasAnswered) {
    service.ignore("Set");
    show(0);
    block->destroy();
    EXPECT_EQ(service.take_calls().size(), 1U);
}

}  // namespace
