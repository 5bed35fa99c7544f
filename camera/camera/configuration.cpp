#include "camera/camera/configuration.hpp"

#include <fmt/core.h>

#include <cmath>
#include <limits>
#include <map>

#include "camera/models/number_text.hpp"
#include "common/toml/document.hpp"

namespace camera {
namespace {

/// Reads sensors, and remembers the first location of each name and id.
class SensorReader {
  public:
    explicit SensorReader(common::Diagnostics& diagnostics) : diagnostics_(diagnostics) {}

    void read(const toml::node& node) {
        const toml::table* table = node.as_table();
        if (table == nullptr) {
            diagnostics_.error(
                common::position(node),
                fmt::format("a sensor must be a table, not {}", common::kind_of(node)));
            return;
        }
        common::TableReader reader(*table, "[[sensors]]", diagnostics_);
        Sensor sensor;
        if (const auto name = reader.string("name"))
            sensor.name = checked_name(*name, reader.location("name"));
        else if (!table->contains("name"))
            reader.missing("name");
        if (const auto id = reader.integer("id"))
            sensor.id = checked_id(*id, reader.location("id"));
        else if (!table->contains("id"))
            reader.missing("id");
        if (const auto temperature = reader.number("temperature"))
            sensor.temperature = *temperature;
        else if (!table->contains("temperature"))
            reader.missing("temperature");
        reader.report_unknown_keys();
        if (!sensor.name.empty())
            sensors_.push_back(std::move(sensor));
    }

    [[nodiscard]] std::vector<Sensor> take() { return std::move(sensors_); }

  private:
    std::string checked_name(const std::string& name, common::SourceLocation location) {
        if (name.empty())
            diagnostics_.error(location, "a sensor's name must not be empty");
        // D-Bus strings end at the first zero byte.
        else if (name.find('\0') != std::string::npos)
            diagnostics_.error(location, "a sensor's name must not contain a zero byte");
        else if (const auto [it, fresh] = names_.emplace(name, location); !fresh)
            diagnostics_.error(location, fmt::format("duplicate sensor name '{}'", name),
                               fmt::format("the first is at line {}", it->second.line));
        else
            return name;
        return {};
    }

    std::int32_t checked_id(std::int64_t id, common::SourceLocation location) {
        using Limits = std::numeric_limits<std::int32_t>;
        if (id < Limits::min() || id > Limits::max()) {
            diagnostics_.error(location, fmt::format("a sensor's id must be from {} to {}, not {}",
                                                     Limits::min(), Limits::max(), id));
            return 0;
        }
        if (const auto [it, fresh] = ids_.emplace(id, location); !fresh)
            diagnostics_.error(location, fmt::format("duplicate sensor id {}", id),
                               fmt::format("the first is at line {}", it->second.line));
        return static_cast<std::int32_t>(id);
    }

    common::Diagnostics& diagnostics_;
    std::vector<Sensor> sensors_;
    std::map<std::string, common::SourceLocation> names_;
    std::map<std::int64_t, common::SourceLocation> ids_;
};

void read_power(const toml::table& table, Power& power, common::Diagnostics& diagnostics) {
    common::TableReader reader(table, "[power]", diagnostics);
    if (const auto budget = reader.number("budget")) {
        if (std::isfinite(*budget) && *budget >= 0.0)
            power.budget = *budget;
        else
            diagnostics.error(
                reader.location("budget"),
                fmt::format("'budget' of [power] must be a finite number of at least 0, not {}",
                            number_text(*budget)));
    }
    power.received = reader.number("received").value_or(power.received);
    reader.report_unknown_keys();
}

void read_video(const toml::table& table, Video& video, common::Diagnostics& diagnostics) {
    common::TableReader reader(table, "[video]", diagnostics);
    if (const auto channels = reader.integer("channels")) {
        if (*channels >= 1 && *channels <= Video::max_channels)
            video.channels = static_cast<int>(*channels);
        else
            diagnostics.error(reader.location("channels"),
                              fmt::format("'channels' of [video] must be from 1 to {}, not {}",
                                          Video::max_channels, *channels));
    }
    if (const auto unit = reader.string("unit")) {
        // D-Bus strings end at the first zero byte.
        if (unit->find('\0') == std::string::npos)
            video.unit = *unit;
        else
            diagnostics.error(reader.location("unit"),
                              "'unit' of [video] must not contain a zero byte");
    }
    reader.report_unknown_keys();
}

}  // namespace

Configuration default_configuration() {
    return {{{"main", 3, 36.5}, {"lens", 4, 28.0}, {"housing", 5, 21.5}}, {}, {}};
}

Configuration read_configuration(const std::string& path, common::Diagnostics& diagnostics) {
    Configuration configuration = default_configuration();
    const auto document = common::read_toml(path, diagnostics);
    if (!document)
        return configuration;
    common::TableReader reader(*document, "the camera's configuration", diagnostics);
    if (const toml::array* sensors = reader.array("sensors")) {
        SensorReader sensor_reader(diagnostics);
        for (const toml::node& node : *sensors)
            sensor_reader.read(node);
        configuration.sensors = sensor_reader.take();
    }
    if (const toml::table* power = reader.table("power"))
        read_power(*power, configuration.power, diagnostics);
    if (const toml::table* video = reader.table("video"))
        read_video(*video, configuration.video, diagnostics);
    reader.report_unknown_keys();
    return configuration;
}

}  // namespace camera
