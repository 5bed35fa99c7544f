#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/block_driver.hpp"
#include "tests/support/configuration_recorder.hpp"
#include "tests/support/layout_probe.hpp"
#include "tests/unit/temperature/controller_texts.hpp"

namespace reader_test {

using blocks::LayoutProbe;
using blocks::TemperatureReader;
using namespace temperature_test;
using Values = std::vector<std::string>;

// What a reader of sensor "main", id 3, with a threshold of 0.5 sends, in this order. The numbers
// of its sendings begin with the two of its base.
inline const std::string change_match = controller_match("TemperatureChangeSignal");
inline const std::string lookup = controller_call("GetTemperatureIdFromName(s \"main\")");
inline const std::string registration =
    controller_call("RegisterForTemperatureChangeSignal(i 3, d 0.5)");
inline const std::string reading_call = controller_call("GetTemperature(i 3, s \"main\")");

class TemperatureReaderTest : public support::BlockTest {
  protected:
    void make(const Fenwa::BlockConfiguration& more = {}) {
        const Fenwa::BlockConfiguration least{{"sensor_name", {"main"}}, {"delta_chg", 0.5}};
        reader.emplace(recorders.tools, "reader", least + more);
        EXPECT_TRUE(reader->woken());
    }

    /// A run of the reader, with what it sends in it.
    Journal run() {
        EXPECT_TRUE((*reader)->run());
        return bus.take_journal();
    }

    /// Brings the base to the point where the controller has an owner.
    void appear() {
        EXPECT_EQ(run().size(), 1U);
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        EXPECT_EQ(run().size(), 1U);
        EXPECT_EQ(bus.last().deliver(messages.reply("s", ":1.5")), 1);
        EXPECT_TRUE(reader->woken());
    }

    // Each takes the block one step further, and reports what the callback returned.

    void install() {
        EXPECT_EQ(run(), (Journal{change_match}));
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        EXPECT_TRUE(reader->woken());
    }
    void look_up() {
        EXPECT_EQ(run(), (Journal{lookup}));
        EXPECT_EQ(bus.last().deliver(messages.reply("i", 3)), 0);
        EXPECT_TRUE(reader->woken());
        EXPECT_EQ(bus.take_journal(), (Journal{"release #4 GetTemperatureIdFromName"}));
    }
    void enlist() {
        EXPECT_EQ(run(), (Journal{registration}));
        EXPECT_EQ(bus.last().deliver(messages.reply("i", 12)), 0);
        EXPECT_TRUE(reader->woken());
        EXPECT_EQ(bus.take_journal(), (Journal{"release #5 RegisterForTemperatureChangeSignal"}));
    }
    void fetch(double reading) {
        EXPECT_EQ(run(), (Journal{reading_call}));
        EXPECT_EQ(bus.last().deliver(messages.reply("d", reading)), 0);
        EXPECT_TRUE(reader->woken());
        EXPECT_EQ(bus.take_journal(), (Journal{"release #6 GetTemperature"}));
    }
    void register_reader() {
        appear();
        install();
        look_up();
        enlist();
    }

    support::Message change(std::int32_t id, double reading) {
        return messages.signal(controller_path, controller_name, "TemperatureChangeSignal", "id",
                               id, reading);
    }
    /// Notifies the reader of a new reading.
    void notify(double reading) {
        EXPECT_EQ(bus.sending(3).deliver(change(12, reading)), 0);
        EXPECT_TRUE(reader->woken());
    }
    void restart_service() {
        EXPECT_EQ(bus.sending(1).deliver(messages.owner_change(controller_name, ":1.5", ":1.6")),
                  0);
        EXPECT_TRUE(reader->woken());
    }

    Fenwa::OutPort<double>& port() {
        return *dynamic_cast<Fenwa::OutPort<double>*>((*reader)->get_outport("temperature_out"));
    }
    /// The value that the last run published, if it did.
    std::optional<double> published() {
        const bool any = !journal.take(support::effect::publication).empty();
        return any ? std::optional(port().value) : std::nullopt;
    }
    Values debug_values() { return recorders.debug.take_values(); }

    [[nodiscard]] bool call_pending() { return *LayoutProbe::call_slot_field(**reader) != nullptr; }
    [[nodiscard]] bool match_pending() {
        return *LayoutProbe::match_slot_field(**reader) != nullptr;
    }

    std::optional<support::BlockDriver<TemperatureReader>> reader;
};

}  // namespace reader_test
