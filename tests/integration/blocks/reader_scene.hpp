#pragma once

#include "tests/integration/blocks/scene.hpp"

namespace test {

/// A graph of one TemperatureReader of sensor "main" with these keys.
inline std::string reader_with(const std::string& keys) {
    return "[blocks.reader]\ntype = \"TemperatureReader\"\nsensor_name = \"main\"\n" + keys;
}

/// A TemperatureReader with a threshold of 0.5.
class ReaderScene : public BlockScene {
  protected:
    ReaderScene()
        : BlockScene({"temperature", "com.tarlo.TemperatureController", "GetNameOwner",
                      reader_with("delta_chg = 0.5\n")}) {}

    /// Starts the host, opening the scene before, and waits for the first reading.
    void start_reading(Setting setting) {
        start(std::move(setting));
        wait_for_output("36.5");
    }
    void start_reading() { start_reading(Setting{}); }
    void set_temperature(const std::string& temperature) { set("temperature.main", temperature); }
};

inline std::string reading_event(const std::string& value) {
    return output_event("reader.temperature_out", "double", value);
}
inline Lines reading_events(const Lines& values) {
    Lines lines;
    for (const std::string& value : values)
        lines.push_back(reading_event(value));
    return lines;
}

/// All events of a reader that publishes these values.
inline Lines reads(const Lines& values) {
    Lines lines{ready_event};
    for (const std::string& value : values)
        lines = lines + Lines{R"({"event":"debug","key":"temperature_reader_sensor_id3_current_)"
                              R"(temperature","value":)" +
                                  value + '}',
                              reading_event(value)};
    return lines + Lines{exit_event};
}

}  // namespace test
