#include "tests/soak/settings.hpp"

#include <fmt/format.h>

#include <stdexcept>

namespace soak {
namespace {

/// Gives the one line "KEY = …" of a graph another value.
void replace(std::string& graph, const std::string& key, const std::string& value) {
    const std::string begin = '\n' + key + " = ";
    const std::size_t at = graph.find(begin);
    if (at == std::string::npos || graph.find(begin, at + 1) != std::string::npos)
        throw std::runtime_error("the camera graph does not have one line '" + key + "'");
    const std::size_t from = at + begin.size();
    graph.replace(from, graph.find('\n', from) - from, value);
}

}  // namespace

std::string with_settings(const std::string& graph, const Settings& settings) {
    std::string text = graph;
    replace(text, "delta_chg",
            fmt::format("{:.2f}\nfake.active = {}\nfake.value = {:.1f}", settings.delta,
                        settings.fake, settings.fake_value));
    replace(text, "interval", std::to_string(settings.interval));
    replace(text, "high_off_temp", fmt::format("{:.1f}", settings.high_off));
    replace(text, "high_on_temp", fmt::format("{:.1f}", settings.high_on));
    replace(text, "power", fmt::format("{:.1f}", settings.power));
    replace(text, "requested_power", fmt::format("{:.1f}", settings.requested_power));
    replace(text, "prio_text_overlay", '"' + settings.text + '"');
    replace(text, "duration", "0");
    return text;
}

}  // namespace soak
