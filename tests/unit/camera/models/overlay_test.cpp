#include "camera/models/overlay.hpp"

#include <gmock/gmock.h>

#include <cstdint>
#include <stdexcept>

namespace camera {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class OverlayTexts : public ::testing::Test {
  protected:
    void set(const std::string& text, std::uint32_t duration, int now) {
        model_.set(text, ":1.9", duration, at(now));
    }

    /// A time in seconds since some beginning.
    static OverlayModel::Time at(int second) {
        return OverlayModel::Time{} + std::chrono::seconds(second);
    }

    /// All texts in their order.
    [[nodiscard]] std::vector<std::string> texts() const {
        std::vector<std::string> all;
        for (const OverlayText& each : model_.texts())
            all.push_back(each.text);
        return all;
    }

    OverlayModel model_;
};

TEST_F(OverlayTexts, WithADurationTheyGoWhenItIsOver) {
    set("one", 5, 10);
    EXPECT_EQ(model_.next_end(), at(15));
    EXPECT_THAT(model_.expire(at(15) - std::chrono::nanoseconds(1)), IsEmpty());
    EXPECT_EQ(model_.shown(), "one");
    EXPECT_THAT(model_.expire(at(15)), ElementsAre("one"));
    EXPECT_EQ(model_.shown(), "");
    EXPECT_EQ(model_.next_end(), std::nullopt);
}

TEST_F(OverlayTexts, TheirTimeRunsWhileTheyWait) {
    set("shown", 0, 0);
    set("late", 9, 0);
    set("early", 3, 0);
    EXPECT_EQ(model_.next_end(), at(3));
    EXPECT_THAT(model_.expire(at(20)), ElementsAre("early", "late")) << "in the order of ends";
    EXPECT_THAT(texts(), ElementsAre("shown"));
}

TEST_F(OverlayTexts, SetAgainTheyKeepTheirPlaceAndGetTheNewDuration) {
    set("one", 5, 0);
    set("two", 0, 0);
    set("one", 5, 4);
    EXPECT_THAT(texts(), ElementsAre("one", "two"));
    EXPECT_EQ(model_.next_end(), at(9));
    set("one", 0, 5);
    EXPECT_EQ(model_.next_end(), std::nullopt) << "now until it is unset";
    set("two", 1, 5);
    EXPECT_EQ(model_.next_end(), at(6));
    EXPECT_EQ(model_.shown(), "one");
}

TEST_F(OverlayTexts, TheLongestDurationIsNotOverSoon) {
    set("one", UINT32_MAX, 0);
    EXPECT_THAT(model_.expire(at(INT32_MAX)), IsEmpty());
    EXPECT_EQ(model_.next_end(), OverlayModel::Time{} + std::chrono::seconds(UINT32_MAX));
}

TEST_F(OverlayTexts, AreOfABoundedNumber) {
    for (std::size_t i = 0; i < OverlayModel::max_texts; ++i)
        set("text " + std::to_string(i), 0, 0);
    EXPECT_THROW(set("one more", 0, 0), std::length_error);
    EXPECT_NO_THROW(set("text 0", 1, 0)) << "one that is set already takes no more room";
}

}  // namespace
}  // namespace camera
