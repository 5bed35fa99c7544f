// The model against a second one that computes exactly, in integers, and by another rule: a
// consumer gets what the budget still covers when all in front of it have had theirs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "camera/models/power.hpp"

namespace camera {
namespace {

// Compilers for 32 bits have no integers of 128, which the second model counts in.
#ifdef __SIZEOF_INT128__

/// Exact multiples of 2^-60: every double of these tests is one.
__extension__ using Exact = __int128;

Exact exact(double power) {
    int exponent = 0;
    const double mantissa = std::frexp(power, &exponent);
    const auto digits = static_cast<std::int64_t>(std::ldexp(mantissa, 53));
    const int shift = exponent - 53 + 60;
    return shift >= 0 ? static_cast<Exact>(digits) << shift : static_cast<Exact>(digits) >> -shift;
}

struct Asker {
    std::string name;
    std::string owner;
    bool asked = false;
    double request = 0.0;
};

class PowerModelAtRandom : public ::testing::Test {
  protected:
    unsigned below(unsigned end) { return static_cast<unsigned>(random_()) % end; }

    /// Powers from 0 to about `most`, of which many are a fraction that does not fit in the rest.
    double power(double most) {
        if (below(8) == 0)
            return 0.0;
        // At most 40 bits after the point: with 13 bits before it all are exact.
        const double raw = static_cast<double>(random_() >> 11) * 0x1.0p-53;
        const double scale = below(4) == 0 ? 0x1.0p-7 : 1.0;
        return std::ldexp(std::floor(std::ldexp(raw * most * scale, 40)), -40);
    }

    /// The share of each consumer in the second model, where sums are exact in doubles.
    [[nodiscard]] std::map<std::string, double> expected() const {
        std::map<std::string, double> shares;
        Exact before = 0;
        for (const Asker& asker : askers_) {
            if (!asker.asked) {
                shares[asker.name] = 0.0;
                continue;
            }
            const Exact wanted = exact(asker.request);
            const Exact covered = std::clamp<Exact>(exact(budget_) - before, 0, wanted);
            shares[asker.name] = std::ldexp(static_cast<double>(covered), -60);
            before += wanted;
        }
        return shares;
    }

    std::mt19937_64 random_{20240229};
    double budget_ = 16.0;
    std::vector<Asker> askers_;  ///< in the order of their first requests
};

TEST_F(PowerModelAtRandom, GivesWhatTheRequestsInFrontLeaveAndTellsExactlyTheChanges) {
    PowerModel model(budget_);
    std::map<std::string, double> told;  // what each consumer believes
    std::size_t partly = 0;
    std::size_t nothing = 0;
    for (int step = 0; step < 20000; ++step) {
        const auto before = expected();
        const std::string name(1, static_cast<char>('a' + below(12)));
        const auto known = std::ranges::find(askers_, name, &Asker::name);
        std::vector<PowerNotice> notices;
        std::string requester;
        if (known == askers_.end()) {
            const std::string owner = ":1." + std::to_string(below(4));
            model.add(name, owner, {"com.example.A", "/", "com.example.A"});
            askers_.push_back({name, owner});
        } else if (const unsigned dice = below(20); dice == 0) {
            notices = model.remove(name);
            askers_.erase(known);
        } else if (dice == 1) {
            const std::string owner = known->owner;
            std::size_t gone = 0;
            std::tie(gone, notices) = model.drop_owner(owner);
            ASSERT_EQ(std::erase_if(askers_, [&](const Asker& a) { return a.owner == owner; }),
                      gone)
                << "step " << step;
        } else if (dice < 5) {
            budget_ = power(64.0);
            notices = model.set_budget(budget_);
        } else {
            requester = name;
            known->request = power(16.0);
            if (!std::exchange(known->asked, true))
                std::rotate(known, known + 1, askers_.end());
            const double wanted = std::ranges::find(askers_, name, &Asker::name)->request;
            notices = model.request(name, {"control", wanted});
        }

        const auto now = expected();
        std::vector<std::pair<std::string, double>> due;
        for (const Asker& asker : askers_) {
            const auto old = before.find(asker.name);
            const double was = old == before.end() ? 0.0 : old->second;
            if (asker.name == requester || now.at(asker.name) != was)
                due.emplace_back(asker.name, now.at(asker.name));
        }
        std::vector<std::pair<std::string, double>> came;
        for (const PowerNotice& notice : notices)
            came.emplace_back(notice.consumer, notice.share);
        ASSERT_EQ(came, due) << "step " << step;

        ASSERT_EQ(model.consumers().size(), askers_.size()) << "step " << step;
        Exact given = 0;
        for (const PowerConsumer& consumer : model.consumers()) {
            ASSERT_EQ(consumer.share, now.at(consumer.name)) << "step " << step;
            given += exact(consumer.share);
            if (!consumer.request || consumer.request->power == 0.0)
                continue;
            partly += consumer.share > 0.0 && consumer.share < consumer.request->power ? 1 : 0;
            nothing += consumer.share == 0.0 ? 1 : 0;
        }
        ASSERT_TRUE(given + exact(model.left()) == exact(budget_)) << "step " << step;
    }
    // The dice have reached what they were thrown for.
    EXPECT_GT(partly, 1000U);
    EXPECT_GT(nothing, 1000U);
}

// Here sums do not fit into doubles, so that only what must hold of roundings is asked for.
TEST_F(PowerModelAtRandom, NeverGivesMoreThanThereIsHoweverItRounds) {
    std::size_t inexact = 0;
    for (int round = 0; round < 2000; ++round) {
        const auto any = [this] {
            const int digits = static_cast<int>(below(53));
            const auto mantissa = static_cast<double>(random_() >> (63 - digits));
            const int least = -60;
            return std::ldexp(mantissa, least + static_cast<int>(below(62)));
        };
        const double budget = any();
        PowerModel model(budget);
        const unsigned count = 1 + below(10);
        for (unsigned i = 0; i < count; ++i) {
            const std::string name = std::to_string(i);
            model.add(name, ":1.1", {"com.example.A", "/", "com.example.A"});
            (void)model.request(name, {"control", any()});
        }
        Exact given = 0;
        for (const PowerConsumer& consumer : model.consumers()) {
            ASSERT_LE(consumer.share, consumer.request->power);
            ASSERT_GE(consumer.share, 0.0);
            given += exact(consumer.share);
        }
        ASSERT_TRUE(given + exact(model.left()) <= exact(budget)) << "round " << round;
        inexact += given + exact(model.left()) < exact(budget) ? 1 : 0;
    }
    EXPECT_GT(inexact, 100U);
}

#endif

class PowerModelTest : public ::testing::Test {
  protected:
    void add(const std::string& name) { model_.add(name, ":1.1", {"com.example.A", "/", "a.B"}); }

    PowerModel model_{1.0};
};

// 1 - 1e-20 is 1 in doubles.
TEST_F(PowerModelTest, AShareTooSmallToMatterIsNotGivenTwice) {
    add("tiny");
    add("big");
    (void)model_.request("tiny", {"control", 1e-20});
    (void)model_.request("big", {"control", 1.0});
    EXPECT_EQ(model_.by_name("tiny")->share, 1e-20);
    EXPECT_EQ(model_.by_name("big")->share, std::nextafter(1.0, 0.0));
}

TEST_F(PowerModelTest, AShareOfMinusZeroIsZero) {
    add("a");
    (void)model_.request("a", {"control", -0.0});
    EXPECT_FALSE(std::signbit(model_.by_name("a")->share));
    (void)model_.set_budget(-0.0);
    EXPECT_FALSE(std::signbit(model_.budget()));
}

TEST_F(PowerModelTest, ARestartFreesTheWholeBudget) {
    add("a");
    (void)model_.request("a", {"control", 0.5});
    model_.drop_all();
    EXPECT_TRUE(model_.consumers().empty());
    EXPECT_EQ(model_.left(), 1.0);
}

TEST_F(PowerModelTest, KnowsNothingOfOthers) {
    EXPECT_THROW((void)model_.request("a", {"control", 1.0}), std::out_of_range);
    EXPECT_THROW((void)model_.remove("a"), std::out_of_range);
    EXPECT_EQ(model_.by_name("a"), nullptr);
}

}  // namespace
}  // namespace camera
