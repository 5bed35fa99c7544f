// The model against a second one that works on whole quarters of a degree, so that no rounding is
// shared between the two, and that looks at histories in place of states.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "camera/models/temperature.hpp"

namespace camera {
namespace {

/// Quarters of a degree; empty means NaN.
using Reading = std::optional<int>;

double degrees(Reading reading) {
    return reading ? *reading / 4.0 : std::numeric_limits<double>::quiet_NaN();
}

/// The readings of one registration since it was made.
struct Watcher {
    std::string owner;
    int sensor;
    bool change;
    int quarters;  ///< delta or limit
    bool rising;
    std::vector<Reading> seen;  ///< begins with the reading at registration
    std::size_t told = 0;       ///< index of the reading that counts as reported

    [[nodiscard]] bool change_due() const {
        const Reading before = seen[told];
        const Reading now = seen.back();
        if (!before || !now)
            return before.has_value() != now.has_value();
        const int apart = *now > *before ? *now - *before : *before - *now;
        return apart != 0 && apart >= quarters;
    }

    [[nodiscard]] bool inside(int reading) const {
        return rising ? reading > quarters : !(reading > quarters);
    }

    [[nodiscard]] bool limit_due() const {
        if (!seen.back() || !inside(*seen.back()))
            return false;
        // The last reading before this one that lay on any side decides.
        for (auto before = seen.rbegin() + 1; before != seen.rend(); ++before) {
            if (*before)
                return !inside(**before);
        }
        return true;
    }
};

TEST(TemperatureModelAtRandom, SignalsWhatTheHistoriesSay) {
    std::mt19937 random(20240229);
    const auto below = [&random](unsigned end) { return static_cast<int>(random() % end); };
    TemperatureModel model({{"a", 0, 10.0}, {"b", 1, 10.0}, {"c", 2, 10.0}});
    std::vector<Reading> now(3, Reading(40));
    std::map<std::int32_t, Watcher> watchers;
    std::set<std::int32_t> ids;
    std::size_t changes = 0;
    std::size_t limits = 0;

    for (int step = 0; step < 10000; ++step) {
        const int dice = below(20);
        if (dice < 2 && watchers.size() < 40) {
            const int sensor = below(3);
            const auto at = static_cast<std::size_t>(sensor);
            Watcher watcher{
                ":1." + std::to_string(below(6)), sensor, dice == 0, 0, below(2) == 0, {now[at]}};
            watcher.quarters = watcher.change ? below(12) - 1 : 30 + below(21);
            std::int32_t id = 0;
            if (watcher.change) {
                id = model.register_change(watcher.owner, sensor, watcher.quarters / 4.0);
            } else {
                bool crossed = false;
                std::tie(id, crossed) = model.register_limit(
                    watcher.owner, sensor, watcher.quarters / 4.0, watcher.rising);
                ASSERT_EQ(crossed, now[at] && watcher.inside(*now[at])) << "step " << step;
            }
            ASSERT_TRUE(ids.insert(id).second) << "step " << step;
            watchers.emplace(id, watcher);
        } else if (dice == 2 && below(10) == 0) {
            const std::string owner = ":1." + std::to_string(below(6));
            const std::size_t gone =
                std::erase_if(watchers, [&](const auto& w) { return w.second.owner == owner; });
            ASSERT_EQ(model.drop_owner(owner), gone) << "step " << step;
        } else {
            const int sensor = below(3);
            const Reading reading = below(15) == 0 ? Reading() : Reading(30 + below(21));
            now[static_cast<std::size_t>(sensor)] = reading;
            std::vector<std::pair<std::int32_t, bool>> expected;
            for (auto& [id, watcher] : watchers) {
                if (watcher.sensor != sensor)
                    continue;
                watcher.seen.push_back(reading);
                if (watcher.change ? watcher.change_due() : watcher.limit_due()) {
                    expected.emplace_back(id, watcher.change);
                    watcher.told = watcher.seen.size() - 1;
                    ++(watcher.change ? changes : limits);
                }
            }
            std::vector<std::pair<std::int32_t, bool>> due;
            for (const TemperatureNotice& notice :
                 model.set(std::string(1, static_cast<char>('a' + sensor)), degrees(reading)))
                due.emplace_back(notice.id, notice.kind == TemperatureNotice::Kind::change);
            ASSERT_EQ(due, expected) << "step " << step;
        }
        ASSERT_EQ(model.registrations().size(), watchers.size()) << "step " << step;
    }
    // The dice have reached what they were thrown for.
    EXPECT_GT(changes, 5000U);
    EXPECT_GT(limits, 5000U);
}

TemperatureModel two_sensors() {
    return TemperatureModel({{"main", 3, 36.5}, {"lens", -4, 28.0}});
}

TEST(TemperatureModel, FindsSensorsByNameAndById) {
    const TemperatureModel model = two_sensors();
    ASSERT_NE(model.by_name("lens"), nullptr);
    EXPECT_EQ(model.by_name("lens")->id, -4);
    ASSERT_NE(model.by_id(3), nullptr);
    EXPECT_EQ(model.by_id(3)->name, "main");
    EXPECT_EQ(model.by_name("Main"), nullptr);
    EXPECT_EQ(model.by_name(""), nullptr);
    EXPECT_EQ(model.by_id(4), nullptr);
}

TEST(TemperatureModel, GivesNoIdAwayForASensorThatItDoesNotHave) {
    TemperatureModel model = two_sensors();
    EXPECT_THROW(model.set("housing", 1.0), std::out_of_range);
    EXPECT_THROW(model.register_change(":1.1", 4, 0.5), std::out_of_range);
    EXPECT_THROW(model.register_limit(":1.1", 4, 60.0, true), std::out_of_range);
    EXPECT_TRUE(model.registrations().empty());
    EXPECT_EQ(model.register_change(":1.1", 3, 1.0), 1);
}

TEST(TemperatureModel, RefusesMoreRegistrationsThanItHasRoomForUntilSomeGo) {
    TemperatureModel model = two_sensors();
    model.register_change(":1.2", 3, 1.0);
    for (std::size_t i = 1; i < TemperatureModel::max_registrations; ++i)
        model.register_change(":1.1", 3, 1.0);
    EXPECT_THROW(model.register_change(":1.3", 3, 1.0), std::length_error);
    EXPECT_THROW(model.register_limit(":1.3", 3, 60.0, true), std::length_error);
    EXPECT_EQ(model.registrations().size(), TemperatureModel::max_registrations);
    EXPECT_EQ(model.drop_owner(":1.2"), 1U);
    EXPECT_NO_THROW(model.register_change(":1.3", 3, 1.0));
}

}  // namespace
}  // namespace camera
