#include "camera/models/power.hpp"

#include <gmock/gmock.h>

#include <cmath>
#include <sstream>
#include <stdexcept>

namespace camera {
namespace {

class PowerModelTest : public ::testing::Test {
  protected:
    void add(const std::string& name, const std::string& owner = ":1.1") {
        model_.add(name, owner, {"com.example." + name, "/", "com.example.I"});
    }
    std::string request(const std::string& name, double power) {
        return text(model_.request(name, {"control", power}));
    }

    /// "a 4.5, b 0" of notices.
    static std::string text(const std::vector<PowerNotice>& notices) {
        std::ostringstream out;
        for (const PowerNotice& notice : notices)
            out << (out.tellp() == 0 ? "" : ", ") << notice.consumer << ' ' << notice.share;
        return out.str();
    }
    /// The same of all consumers as they stand.
    [[nodiscard]] std::string shares() const {
        std::vector<PowerNotice> all;
        for (const PowerConsumer& consumer : model_.consumers())
            all.push_back({consumer.name, consumer.share});
        return text(all);
    }

    PowerModel model_{10.0};
};

TEST_F(PowerModelTest, EachGetsItsRequestOrWhatIsLeft) {
    add("a");
    add("b");
    add("c");
    EXPECT_EQ(request("a", 6.0), "a 6");
    EXPECT_EQ(request("b", 6.0), "b 4");
    EXPECT_EQ(model_.left(), 0.0);
    EXPECT_EQ(request("c", 1.0), "c 0") << "told all the same";
    EXPECT_EQ(shares(), "a 6, b 4, c 0");
}

TEST_F(PowerModelTest, PowerIsGivenInTheOrderOfTheRequestsNotOfTheRegistrations) {
    add("a");
    add("b");
    EXPECT_EQ(request("b", 8.0), "b 8");
    EXPECT_EQ(request("a", 8.0), "a 2");
    EXPECT_EQ(shares(), "b 8, a 2");
}

TEST_F(PowerModelTest, ASecondRequestKeepsItsPlace) {
    add("a");
    add("b");
    add("c");
    (void)request("a", 2.0);
    (void)request("b", 5.0);
    (void)request("c", 9.0);
    EXPECT_EQ(shares(), "a 2, b 5, c 3");
    EXPECT_EQ(request("a", 7.0), "a 7, b 3, c 0");
    EXPECT_EQ(request("a", 7.0), "a 7") << "the same again changes nobody's share";
    EXPECT_EQ(request("a", 1.0), "a 1, b 5, c 4");
}

TEST_F(PowerModelTest, ANewBudgetTellsThoseWhoseShareChanges) {
    add("a");
    add("b");
    (void)request("a", 6.0);
    (void)request("b", 3.0);
    EXPECT_EQ(text(model_.set_budget(9.0)), "");
    EXPECT_EQ(text(model_.set_budget(8.0)), "b 2");
    EXPECT_EQ(text(model_.set_budget(0.0)), "a 0, b 0");
    EXPECT_EQ(text(model_.set_budget(100.0)), "a 6, b 3");
    EXPECT_EQ(model_.left(), 91.0);
    EXPECT_EQ(model_.budget(), 100.0);
}

TEST_F(PowerModelTest, TheShareOfOneThatGoesIsFree) {
    add("a");
    add("b");
    (void)request("a", 8.0);
    (void)request("b", 8.0);
    EXPECT_EQ(text(model_.remove("a")), "b 8");
    add("a");
    EXPECT_EQ(request("a", 8.0), "a 2") << "it stands at the end now";
    EXPECT_EQ(model_.by_name("c"), nullptr);
}

TEST_F(PowerModelTest, AllOfAClientGoTogether) {
    add("a", ":1.1");
    add("b", ":1.2");
    add("c", ":1.1");
    (void)request("a", 4.0);
    (void)request("b", 9.0);
    (void)request("c", 9.0);
    const auto [count, notices] = model_.drop_owner(":1.1");
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(text(notices), "b 9");
    EXPECT_EQ(model_.drop_owner(":1.1").first, 0U);
}

TEST_F(PowerModelTest, RegisteringAgainMovesTheAddressAndKeepsTheRest) {
    add("a", ":1.1");
    add("b", ":1.1");
    (void)request("a", 4.0);
    (void)request("b", 9.0);
    model_.add("a", ":1.1", {"com.example.other", "/other", "com.example.Other"});
    EXPECT_EQ(shares(), "a 4, b 6");
    EXPECT_EQ(model_.by_name("a")->address.service, "com.example.other");
    EXPECT_EQ(model_.by_name("a")->address.path, "/other");
    EXPECT_EQ(model_.by_name("a")->address.interface, "com.example.Other");
    EXPECT_EQ(model_.by_name("a")->request->kind, "control");
}

TEST_F(PowerModelTest, OneThatHasNotAskedHasNothing) {
    add("a");
    EXPECT_EQ(shares(), "a 0");
    EXPECT_FALSE(model_.by_name("a")->request);
    EXPECT_EQ(text(model_.set_budget(20.0)), "");
}

TEST_F(PowerModelTest, ARestartForgetsConsumersAndKeepsTheBudget) {
    add("a");
    (void)request("a", 4.0);
    model_.drop_all();
    EXPECT_TRUE(model_.consumers().empty());
    EXPECT_EQ(model_.left(), 10.0);
    EXPECT_EQ(model_.budget(), 10.0);
}

// 1 - 1e-20 is 1 in doubles.
TEST_F(PowerModelTest, AShareTooSmallToMatterIsNotGivenTwice) {
    model_.set_budget(1.0);
    add("tiny");
    add("big");
    (void)request("tiny", 1e-20);
    (void)request("big", 1.0);
    EXPECT_EQ(model_.by_name("tiny")->share, 1e-20);
    EXPECT_EQ(model_.by_name("big")->share, std::nextafter(1.0, 0.0));
}

TEST_F(PowerModelTest, AShareOfMinusZeroIsZero) {
    add("a");
    (void)request("a", -0.0);
    EXPECT_FALSE(std::signbit(model_.by_name("a")->share));
    (void)model_.set_budget(-0.0);
    EXPECT_FALSE(std::signbit(model_.budget()));
}

TEST_F(PowerModelTest, TakesSoManyConsumersAndNoMore) {
    for (std::size_t i = 0; i < PowerModel::max_consumers; ++i)
        add("c" + std::to_string(i));
    EXPECT_THROW(add("one more"), std::length_error);
    EXPECT_NO_THROW(add("c7")) << "this one is there already";
    EXPECT_EQ(model_.consumers().size(), PowerModel::max_consumers);
}

TEST_F(PowerModelTest, KnowsNothingOfOthers) {
    EXPECT_THROW((void)request("a", 1.0), std::out_of_range);
    EXPECT_THROW((void)model_.remove("a"), std::out_of_range);
}

}  // namespace
}  // namespace camera
