#pragma once

#include "tests/integration/blocks/scene.hpp"

namespace test {

/// The service whose name the readers follow.
inline constexpr const char* controller_name = "com.tarlo.TemperatureController";

/// A graph of one TemperatureReader with these keys.
inline std::string reader_with(const std::string& keys) {
    return "[blocks.reader]\ntype = \"TemperatureReader\"\n" + keys;
}

/// A TemperatureReader of sensor "main", with a threshold of 0.5.
class ReaderScene : public BlockScene {
  protected:
    ReaderScene()
        : BlockScene({controller_name, "GetNameOwner",
                      reader_with("sensor_name = \"main\"\ndelta_chg = 0.5\n")}) {}
};

inline std::string reading_event(const std::string& value) {
    return output_event("reader.temperature_out", "double", value);
}

inline std::string debug_event(const std::string& value) {
    return R"({"event":"debug","key":"temperature_reader_sensor_id3_current_temperature","value":)" +
           value + '}';
}

}  // namespace test
