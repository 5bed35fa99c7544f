#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

#include "camera/bus/names.hpp"
#include "common/bus/bus.hpp"
#include "common/bus/private_bus.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "src/blocks/temperature/temperature_monitor.hpp"
#include "tests/support/block_driver.hpp"
#include "tests/support/process.hpp"

namespace test {
namespace {

/// A band with hysteresis at both ends, as users think of it: the temperature moves without gaps,
/// and each limit that it passes on its way switches the verdict.
class Hysteresis {
  public:
    struct Band {
        float low_off, low_on, high_on, high_off;
    };

    Hysteresis(const Band& band, double start)
        : band_(band), temperature_(start), ok_(band.low_off < start && start <= band.high_off) {}

    /// Goes there in quarters, of which limits and temperatures are multiples.
    void move_to(double target) {
        while (temperature_ < target) {
            if (temperature_ == band_.low_on)
                ok_ = true;
            if (temperature_ == band_.high_off)
                ok_ = false;
            temperature_ += 0.25;
        }
        while (temperature_ > target) {
            temperature_ -= 0.25;
            if (temperature_ == band_.high_on)
                ok_ = true;
            if (temperature_ == band_.low_off)
                ok_ = false;
        }
    }

    [[nodiscard]] bool ok() const { return ok_; }

  private:
    Band band_;
    double temperature_;
    bool ok_;
};

/// A TemperatureMonitor of the sensor "main" on a connection of its own.
class MonitorOnBus {
  public:
    MonitorOnBus(const std::string& address, const Hysteresis::Band& band)
        : bus_(common::open_bus(address, std::chrono::seconds(5))),
          tools_(bus_.get()),
          monitor_(tools_, "monitor",
                   Fenwa::BlockConfiguration{{"sensor_name", {"main"}},
                                             {"low_off_temp", double{band.low_off}},
                                             {"low_on_temp", double{band.low_on}},
                                             {"high_on_temp", double{band.high_on}},
                                             {"high_off_temp", double{band.high_off}}}) {}
    MonitorOnBus(const MonitorOnBus&) = delete;
    MonitorOnBus& operator=(const MonitorOnBus&) = delete;
    ~MonitorOnBus() { monitor_->stop(); }

    /// Serves bus and block until every limit is registered.
    void register_limits() {
        // The constructor, two matches and four registrations each wake the block once.
        for (int runs = 0; runs < 7;) {
            if (serve()) {
                ++runs;
                continue;
            }
            ASSERT_GT(sd_bus_wait(bus_.get(), 20'000'000), 0) << "after " << runs << " runs";
        }
    }

    /// Serves everything that the controller has sent until now.
    void catch_up() {
        // The reply comes after all signals that were sent before it.
        const auto& to = camera::temperature_controller;
        ASSERT_GE(sd_bus_call_method(bus_.get(), to.name, to.path, to.interface, "GetTemperature",
                                     nullptr, nullptr, "is", 3, "main"),
                  0);
        while (serve()) {
        }
    }

    [[nodiscard]] bool verdict() {
        return dynamic_cast<Fenwa::OutPort<bool>&>(*monitor_->get_outport("temperature_ok_out"))
            .value;
    }

  private:
    /// @returns whether the block has run.
    bool serve() {
        int r = 0;
        while ((r = sd_bus_process(bus_.get(), nullptr)) > 0) {
        }
        EXPECT_EQ(r, 0);
        return monitor_.woken() && monitor_->run();
    }

    common::BusPtr bus_;
    Fenwa::ConnectionTools tools_;
    support::BlockDriver<blocks::TemperatureMonitor> monitor_;
};

/// Limits and temperatures are multiples of a quarter, so that limits are hit exactly, too.
class Walker {
  public:
    explicit Walker(unsigned seed) : random_(seed) {}

    /// The limits of a band in their order; neighbours may be equal, but there is always room
    /// between going on and going off in one direction.
    Hysteresis::Band band() {
        std::array<float, 4> limits{};
        do {
            std::ranges::generate(limits, [this] { return static_cast<float>(anywhere()); });
            std::ranges::sort(limits);
        } while (limits[1] == limits[3] || limits[0] == limits[2]);
        return {limits[0], limits[1], limits[2], limits[3]};
    }

    double anywhere() { return 0.25 * std::uniform_int_distribution(-80, 320)(random_); }

    /// The next temperature: any, one nearby, a limit, or one just beside a limit.
    double next(double from, const Hysteresis::Band& band) {
        const std::array<float, 4> limits{band.low_off, band.low_on, band.high_on, band.high_off};
        const double limit = limits.at(std::uniform_int_distribution<std::size_t>(0, 3)(random_));
        switch (std::uniform_int_distribution(0, 3)(random_)) {
            case 0:
                return anywhere();
            case 1:
                return from + 0.25 * std::uniform_int_distribution(-40, 40)(random_);
            case 2:
                return limit;
            default:
                return limit + 0.25 * std::uniform_int_distribution(-2, 2)(random_);
        }
    }

  private:
    std::mt19937 random_;
};

class MonitorWalksTest : public ::testing::TestWithParam<unsigned> {
  protected:
    static constexpr int walks = 1250;
    static constexpr int steps = 8;

    MonitorWalksTest() { EXPECT_TRUE(camera_.wait_for_text("\"ready\"")) << camera_.err(); }

    void set_temperature(double temperature) {
        const auto& to = camera::camera_control;
        ASSERT_GE(sd_bus_call_method(orders_.get(), to.name, to.path, to.interface, "Set", nullptr,
                                     nullptr, "ss", "temperature.main",
                                     std::to_string(temperature).c_str()),
                  0);
    }

    support::LogRecorder log_;  // in place of thousands of lines on the screen
    common::PrivateBus bus_;
    // Nobody here reads the camera's many events, so after the first line they go nowhere.
    Process camera_{{"/bin/bash", "-c",
                     "exec \"$0\" run --bus \"$1\" --format json "
                     "> >(grep --max-count=1 '\"ready\"'; exec cat >/dev/null)",
                     FENWA_CAMERA_PROGRAM, bus_.address()}};
    common::BusPtr orders_ = common::open_bus(bus_.address(), std::chrono::seconds(20));
};

TEST_P(MonitorWalksTest, JudgesAsAHysteresisDoesAfterEachStep) {
    Walker walker(GetParam());
    int verdicts[2] = {0, 0};
    for (int walk = 0; walk < walks; ++walk) {
        const Hysteresis::Band band = walker.band();
        double temperature = walker.anywhere();
        ASSERT_NO_FATAL_FAILURE(set_temperature(temperature));
        Hysteresis expected(band, temperature);
        MonitorOnBus monitor(bus_.address(), band);
        ASSERT_EQ(monitor.verdict(), expected.ok()) << "walk " << walk << " at " << temperature;
        ASSERT_NO_FATAL_FAILURE(monitor.register_limits());
        for (int step = 0; step <= steps; ++step) {
            ASSERT_NO_FATAL_FAILURE(monitor.catch_up());
            ASSERT_EQ(monitor.verdict(), expected.ok())
                << "walk " << walk << ", step " << step << " to " << temperature << ", band off "
                << band.low_off << " on " << band.low_on << " on " << band.high_on << " off "
                << band.high_off;
            ++verdicts[expected.ok() ? 1 : 0];
            temperature = walker.next(temperature, band);
            ASSERT_NO_FATAL_FAILURE(set_temperature(temperature));
            expected.move_to(temperature);
        }
        for (const std::string& line : log_.take())
            ASSERT_NE(line.find("Setting temperature_ok_out = "), std::string::npos) << line;
    }
    // Neither verdict was rare, or the walks would prove little.
    EXPECT_GT(std::min(verdicts[0], verdicts[1]), walks * steps / 10);
}

INSTANTIATE_TEST_SUITE_P(Eighth, MonitorWalksTest, ::testing::Range(1U, 9U));

}  // namespace
}  // namespace test
