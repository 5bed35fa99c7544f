// Messages without end for one block, and what is left for the others.
#include <systemd/sd-bus.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <thread>

#include "camera/bus/names.hpp"
#include "common/bus/callback.hpp"
#include "tests/integration/load/load_scene.hpp"
#include "tests/support/sender.hpp"

namespace test {
namespace {

using common::check;
using Clock = std::chrono::steady_clock;

/// The daemon reads no more of a client that has so many bytes under way to slower receivers. With
/// its default, 127 MiB, a flood delays everybody's messages by seconds.
constexpr const char* back_pressure = "<limit name=\"max_incoming_bytes\">65536</limit>";

/// A temperature controller whose sensor changes without a pause.
class Controller : public Sender {
  public:
    explicit Controller(const std::string& address) : Sender(address) {
        check(sd_bus_add_object_vtable(bus(), object_.out(), names.path, names.interface, vtable,
                                       this),
              "an object");
        common::own_name(*bus(), names.name);
    }

    /// Answers until a reader has read the first temperature.
    void serve_reader() {
        while (!read_) {
            if (check(sd_bus_process(bus(), nullptr), "serve") == 0)
                check(sd_bus_wait(bus(), UINT64_MAX), "wait");
        }
    }
    void signal(double temperature) {
        check(sd_bus_emit_signal(bus(), names.path, names.interface, "TemperatureChangeSignal",
                                 "id", signal_id, temperature),
              "a signal");
    }

  private:
    static constexpr camera::BusObject names = camera::temperature_controller;
    static constexpr int signal_id = 3;

    int on_id(sd_bus_message& call) { return sd_bus_reply_method_return(&call, "i", 7); }
    int on_register(sd_bus_message& call) {
        return sd_bus_reply_method_return(&call, "i", signal_id);
    }
    int on_read(sd_bus_message& call) {
        read_ = true;
        return sd_bus_reply_method_return(&call, "d", 36.5);
    }

    static const sd_bus_vtable vtable[];

    common::SlotPtr object_;
    bool read_ = false;
};

const sd_bus_vtable Controller::vtable[] = {
    SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetTemperatureIdFromName", "s", "i", common::callback<&Controller::on_id>,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("RegisterForTemperatureChangeSignal", "id", "i",
                  common::callback<&Controller::on_register>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetTemperature", "is", "d", common::callback<&Controller::on_read>,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

constexpr const char* reader =
    "[blocks.reader]\ntype = \"TemperatureReader\"\nsensor_name = \"main\"\ndelta_chg = 0.5\n";
constexpr const char* supply = "[blocks.supply]\ntype = \"PowerMonitor\"\nrequested_power = 15.0\n";
constexpr const char* consumer =
    "[bus]\nnames = [\"com.tarlo.Vipd.ch0\"]\n"
    "[blocks.tick]\ntype = \"Timer\"\ninterval = 100\n"
    "[blocks.power]\ntype = \"PowerConsumer\"\nchannel = 0\npower = 12.0\n"
    "[[connections]]\nfrom = \"tick.out\"\nto = \"power.timer_in\"\n";

std::string output(const std::string& block, const std::string& value) {
    return "\"block\":\"" + block + "\",\"port\":\"" + value;
}

class Flood : public LoadScene {
  protected:
    /// Has `flood` run on a thread of its own, and meanwhile changes something for another block:
    /// `exchange` does so for each number from 0 on, and waits for its line.
    void expect_others_served(const std::function<void()>& flood,
                              const std::function<void(int)>& exchange) {
        constexpr double most_milliseconds = 20.0;
        EXPECT_LT(least_of_rounds(most_milliseconds, [&] { return latency(flood, exchange); }),
                  most_milliseconds);
    }

    /// Another reader's temperature.
    [[nodiscard]] std::function<void(int)> change_temperature() {
        return [this](int sample) {
            const std::string value = sample % 2 == 0 ? "40" : "50";
            publishing_time(
                "temperature.main", value,
                output("reader", R"(temperature_out","type":"double","value":)" + value + ".0"));
        };
    }
    /// The verdict of a PowerMonitor.
    [[nodiscard]] std::function<void(int)> change_power() {
        return [this](int sample) {
            const bool enough = sample % 2 != 0;
            publishing_time(
                "power.received", enough ? "25" : "5",
                output("supply", std::string(R"(power_ok_out","type":"bool","value":)") +
                                     (enough ? "true" : "false")));
        };
    }

  private:
    /// The 99th percentile, in milliseconds.
    double latency(const std::function<void()>& flood, const std::function<void(int)>& exchange);

    int samples_ = 0;
};

double Flood::latency(const std::function<void()>& flood,
                      const std::function<void(int)>& exchange) {
    constexpr long most_growth = 1000;  // kB; one byte a message would be 1,000,000
    const long before = memory();
    long most = before;
    std::vector<double> milliseconds;
    std::atomic<bool> done = false;
    const auto begin = Clock::now();
    std::jthread thread([&] {
        try {
            flood();
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
        done = true;
    });
    // Each change has its time, whatever the one before took: a pause makes all of them late that
    // fall into it. Not often enough to use up the block's budget of runs.
    for (auto due = begin; !done; due += std::chrono::milliseconds(9 + samples_ % 7), ++samples_) {
        std::this_thread::sleep_until(due);
        exchange(samples_);
        milliseconds.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - due).count());
        most = std::max(most, memory());
    }
    const std::chrono::duration<double> passed = Clock::now() - begin;
    std::ranges::sort(milliseconds);
    const double late = milliseconds[milliseconds.size() * 99 / 100];
    std::printf(
        "%.1f s; %zu changes for another block are published after %.2f ms (median), %.2f ms (99th "
        "percentile); memory %ld kB before, %ld kB at most\n",
        passed.count(), milliseconds.size(), milliseconds[milliseconds.size() / 2], late, before,
        most);
    EXPECT_LT(most, before + most_growth);
    return late;
}

TEST_F(Flood, OfTemperatureSignalsEndsWithTheLastValueAndLeavesOthersServed) {
    open(back_pressure, {"--without", "temperature"});
    Controller controller(address());
    start_host(std::string(reader) + supply);
    controller.serve_reader();
    ASSERT_TRUE(host().wait_for_text("\"value\":36.5"));
    const int signals = 1'000'000;
    expect_others_served(
        [&] {
            controller.pour(signals, [&](int i) { controller.signal(i % 2 == 0 ? 40.0 : 50.0); });
        },
        change_power());
    controller.pour(1, [&](int) { controller.signal(4711.0); });
    EXPECT_TRUE(host().wait_for_text(
        output("reader", R"(temperature_out","type":"double","value":4711.0)")));
    EXPECT_EQ(host().terminate().code, 0);
}

TEST_F(Flood, OfOwnerChangesEndsWithTheLastValueAndLeavesOthersServed) {
    open("");
    start_host(std::string(reader) + supply);
    ASSERT_TRUE(host().wait_for_text("\"value\":36.5"));
    Sender other(address());
    // Each time the name comes and goes.
    expect_others_served([&] { other.change_owners(50'000); }, change_power());
    set("temperature.main", "47");
    EXPECT_TRUE(
        host().wait_for_text(output("reader", R"(temperature_out","type":"double","value":47.0)")));
    EXPECT_EQ(host().terminate().code, 0);
}

TEST_F(Flood, OfGrantsOfPowerEndsWithTheLastOneAndLeavesOthersServed) {
    open(back_pressure);
    start_host(std::string(consumer) + reader);
    ASSERT_TRUE(host().wait_for_text(output("power", R"(power_out","type":"float","value":12.0)")));
    Sender other(address());
    const camera::BusObject power{"com.tarlo.Vipd.ch0", "/com/tarlo/Vipd/PowerConsumer",
                                  "com.tarlo.Vipd.PowerConsumer"};
    const auto grant = [&](double watts) { other.send_call(power, "SetPower", "d", watts); };
    expect_others_served([&] { other.pour(100'000, [&](int i) { grant(i % 10 * 0.5); }); },
                         change_temperature());
    other.pour(1, [&](int) { grant(4711.0); });
    EXPECT_TRUE(
        host().wait_for_text(output("power", R"(power_out","type":"float","value":4711.0)")));
    EXPECT_EQ(host().terminate().code, 0);
}

}  // namespace
}  // namespace test
