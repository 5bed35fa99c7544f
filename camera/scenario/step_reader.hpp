#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "camera/camera/camera.hpp"
#include "camera/scenario/scenario.hpp"
#include "common/text/diagnostics.hpp"
#include "common/toml/document.hpp"

namespace camera {

/// Reads the steps of a scenario file; each mistake becomes a diagnostic at its place.
class StepReader {
  public:
    /// Both must outlive the reader.
    StepReader(const Camera& camera, common::Diagnostics& diagnostics)
        : camera_(camera), diagnostics_(diagnostics) {}

    /// Reads a step, without the parts that have mistakes.
    [[nodiscard]] Step read(const toml::node& node);

  private:
    using Visit = std::function<void(const std::string& name, const common::TomlEntry& entry)>;

    void read_times(common::TableReader& reader, Step& step);
    void read_action(const std::string& key, common::TableReader& reader, Step& step);
    void read_service_command(ServiceCommand::Verb verb, const std::string& key,
                              common::TableReader& reader, Step& step);
    void read_set(const toml::table& table, Step& step);
    void read_ramp(const toml::table& table, Step& step);
    void read_fail(const toml::table& table, Step& step);
    void read_run(common::TableReader& reader, Step& step);
    void read_expectation(const toml::table& table, Step& step);
    std::optional<ExpectedCall> read_call(common::TableReader& reader);
    std::optional<ExpectedValue> read_value(std::string_view subject, common::TableReader& reader);
    [[nodiscard]] bool check_subject(ExpectedValue& value, std::string_view subject,
                                     common::TableReader& reader);
    [[nodiscard]] bool read_condition(ExpectedValue& value, common::TableReader& reader);
    [[nodiscard]] bool read_range(Condition& condition, common::TableReader& reader);
    /// Compares the value of a camera as the camera shows it: 71 and 71.0 are the same temperature.
    [[nodiscard]] bool check_state(ExpectedValue& value, common::TableReader& reader);
    void read_reply(const toml::table& table, Step& step);
    void read_send(const std::string& key, const toml::table& table, Step& step);
    /// Reads an array of values; null where the key is absent or has a mistake.
    common::SharedJson json_array(common::TableReader& reader, std::string_view key);
    /// Reads the name of a D-Bus object or interface; empty where the key is absent.
    std::string bus_text(common::TableReader& reader, std::string_view key);

    /// Visits each value of a table. `temperature.main = 1` without quotes is a table in a table,
    /// and means the same as `"temperature.main" = 1`.
    static void each_value(const toml::table& table, const std::string& prefix, const Visit& visit);
    /// Runs a check of the camera; an error becomes a diagnostic. True where there is none.
    bool passes(common::SourceLocation location, const std::function<void()>& check);
    /// Reads a time in seconds, from 0 to `max_scenario_time`.
    std::optional<Seconds> time(common::TableReader& reader, std::string_view key);
    enum class Tables { refused, accepted };
    std::optional<common::Json> json(const toml::node& node, Tables tables = Tables::refused);

    const Camera& camera_;
    common::Diagnostics& diagnostics_;
};

}  // namespace camera
