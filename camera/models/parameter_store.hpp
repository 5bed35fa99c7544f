#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace camera {

/// A parameter of the camera that web requests read and change.
struct Parameter {
    std::string name;
    std::vector<std::string> choices;  ///< the accepted values
    std::string value;
};

/// A parameter's name and the value that a web request sets.
using ParameterUpdate = std::pair<std::string, std::string>;

/// "ImageSource.I0.Sensor.WDR" of channel 0.
[[nodiscard]] std::string wdr_parameter(int channel);

/// The camera's parameters: WDR of each channel, "off" at first. Knows no bus and no network.
class ParameterStore {
  public:
    /// `channels` is at least 1.
    explicit ParameterStore(int channels);

    /// @throws CommandError, with the nearest name, where there is no such parameter.
    [[nodiscard]] const Parameter& by_name(std::string_view name) const;
    /// @throws CommandError where the parameter does not accept the value.
    void check(std::string_view name, const std::string& value) const;
    /// @throws CommandError as `by_name` and `check`.
    void set(std::string_view name, const std::string& value);

    /// Serves a request such as a GET of "/tarlo-cgi/param.cgi?action=update&NAME=VALUE", which may
    /// update several parameters; %XX and + stand for other bytes, as in every query. Returns the
    /// updates in the order of the request.
    /// @throws CommandError, after changing nothing.
    std::vector<ParameterUpdate> request(std::string_view type, std::string_view url);

  private:
    std::vector<Parameter> parameters_;
};

}  // namespace camera
