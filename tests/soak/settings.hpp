#pragma once

#include <string>

namespace soak {

/// The settings of the camera graph that a soak changes. Each change of one reloads the graph.
struct Settings {
    bool fake = false;  ///< of the reader; live, as the next
    double fake_value = 36.0;
    int interval = 1000;  ///< of the timer, in milliseconds; live
    // The others are read when a block is built: a change builds it anew.
    double delta = 0.5;                 ///< of the reader; temperatures change by 1 at least
    double high_off = 70.0;             ///< of the guard
    double high_on = 60.0;              ///< of the guard
    double power = 12.0;                ///< of the consumer
    double requested_power = 15.0;      ///< of the supply
    std::string text = "Good morning";  ///< of the greeting
};

/// The camera graph with these settings. The greeting stays until it is taken away, so that it can
/// be missed.
/// @param graph the text of the graph file.
/// @throws std::runtime_error if the graph has another form.
[[nodiscard]] std::string with_settings(const std::string& graph, const Settings& settings);

}  // namespace soak
