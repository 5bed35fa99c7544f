#pragma once

#include <string>

#include "tests/unit/temperature/controller_texts.hpp"

extern template class support::BlockFixture<blocks::TemperatureReader>;

namespace reader_test {

using namespace temperature_test;
using blocks::TemperatureReader;

// A reader of sensor "main", id 3, with a threshold of 0.5 sends these in this order, as its
// sendings 3 to 6. Sendings 1 and 2 belong to its base.
inline const std::string change_match = controller_match("TemperatureChangeSignal");
inline const std::string lookup = controller_call("GetTemperatureIdFromName(s \"main\")");
inline const std::string registration =
    controller_call("RegisterForTemperatureChangeSignal(i 3, d 0.5)");
inline const std::string reading_call = controller_call("GetTemperature(i 3, s \"main\")");

/// The effects of a run that publishes a value, which the debug-data store keeps as a float.
inline Journal publication(const std::string& value, const std::string& as_float) {
    return {"publish temperature_out = " + value,
            "temperature_reader_sensor_id3_current_temperature = #2 " + as_float};
}
inline Journal publication(const std::string& value) {
    return publication(value, value);
}

inline Fenwa::BlockConfiguration fake(bool active, double value) {
    return {{"fake.active", active}, {"fake.value", value}};
}

class TemperatureReaderTest : public BlockFixture<TemperatureReader> {
  protected:
    void make(const Fenwa::BlockConfiguration& more = {}) {
        const Fenwa::BlockConfiguration least{{"sensor_name", {"main"}}, {"delta_chg", 0.5}};
        build("reader", least + more);
        EXPECT_TRUE(woken());
    }

    // Each takes the reader one step further.

    void appear() {
        EXPECT_EQ(run(), (Journal{owner_match}));
        EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
        EXPECT_EQ(run(), (Journal{owner_query(controller_name)}));
        EXPECT_EQ(deliver(bus.last(), messages.reply("s", ":1.5")),
                  (Journal{"fire event_port", returns(1)}));
    }
    void install_match() {
        EXPECT_EQ(run(), (Journal{change_match}));
        EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
    }
    void look_up(std::int32_t id = 3) { exchange(lookup, messages.reply("i", id)); }
    void enlist(std::int32_t id = 12) { exchange(registration, messages.reply("i", id)); }
    void fetch(double reading) { exchange(reading_call, messages.reply("d", reading)); }
    /// The reader makes this call and gets this answer.
    void exchange(const std::string& call, const Message& reply) {
        EXPECT_EQ(run(), (Journal{call}));
        answer(reply);
    }
    void answer(const Message& reply) {
        EXPECT_EQ(deliver(bus.last(), reply),
                  (Journal{bus.last().release_text, "fire event_port"}));
        EXPECT_FALSE(call_pending());
    }

    /// Takes all steps before the sending `number`.
    void reach(std::size_t number) {
        appear();
        if (number > 3)
            install_match();
        if (number > 4)
            look_up();
        if (number > 5)
            enlist();
    }
    void register_reader() { reach(6); }

    Message change(std::int32_t id, double reading) {
        return signal_of("TemperatureChangeSignal", "id", id, reading)(messages);
    }
    /// Signals a new reading.
    void notify(double reading) {
        EXPECT_EQ(deliver(bus.sending(3), change(12, reading)), wake_up);
    }
    void change_owner(const char* new_owner) {
        EXPECT_EQ(
            deliver(bus.sending(1), messages.owner_change(controller_name, ":1.5", new_owner)),
            wake_up);
    }
    Journal reconfigure(const Fenwa::BlockConfiguration& settings) {
        return effects_of([&] { block().reconfigure(settings, {}); });
    }
};

}  // namespace reader_test
