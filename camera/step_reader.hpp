#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "camera/camera.hpp"
#include "camera/scenario.hpp"
#include "common/diagnostics.hpp"
#include "common/toml_document.hpp"

namespace camera {

/// Reads the steps of a scenario file; each mistake becomes a diagnostic at its place.
class StepReader {
  public:
    /// Both must outlive the reader.
    StepReader(const Camera& camera, tool::Diagnostics& diagnostics)
        : camera_(camera), diagnostics_(diagnostics) {}

    /// A step with mistakes comes back without what could not be read.
    [[nodiscard]] Step read(const toml::node& node);

  private:
    using Visit = std::function<void(const std::string& name, const tool::TomlEntry& entry)>;

    void read_times(tool::TableReader& reader, Step& step);
    void read_action(const std::string& key, tool::TableReader& reader, Step& step);
    void read_order(ServiceOrder::Verb verb, const std::string& key, tool::TableReader& reader,
                    Step& step);
    void read_set(const toml::table& table, Step& step);
    void read_ramp(const toml::table& table, Step& step);
    void read_fail(const toml::table& table, Step& step);
    void read_run(tool::TableReader& reader, Step& step);
    void read_expectation(const toml::table& table, Step& step);
    std::optional<ExpectedCall> read_call(const std::string& target, tool::TableReader& reader);
    std::optional<ExpectedState> read_state(const std::string& name, tool::TableReader& reader);

    /// Visits each value of a table; `temperature.main = 1` without quotes is a table in a table
    /// and means the same as `"temperature.main" = 1`.
    static void each_value(const toml::table& table, const std::string& prefix, const Visit& visit);
    /// Makes the camera's refusal of a check a diagnostic; true when there is none.
    bool passes(tool::Position where, const std::function<void()>& check);
    /// A time in seconds, at least 0.
    std::optional<Seconds> time(tool::TableReader& reader, std::string_view key);
    std::optional<tool::Json> json(const toml::node& node);

    const Camera& camera_;
    tool::Diagnostics& diagnostics_;
};

}  // namespace camera
