#include "camera/services/video.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <optional>

#include "common/text/diagnostics.hpp"
#include "common/text/number_text.hpp"

namespace camera {
namespace {

using common::Json;
using common::MessagePtr;

std::string value_name(std::size_t channel) {
    return fmt::format("video.{}", channel);
}

}  // namespace

const sd_bus_vtable VideoService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("SignalVideoReady", SD_BUS_ARGS("s", who), SD_BUS_NO_RESULT,
                            serve<&VideoService::signal_video_ready>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

VideoService::VideoService(int channels, ServiceContext& surroundings)
    : Service("video", surroundings), channels_(static_cast<std::size_t>(channels)) {
    for (int channel = 0; channel < channels; ++channel)
        paths_.push_back(fmt::format("{}/{}", video_ready.path, channel));
    // Behind the loop: the objects refer to strings that must not move any more.
    for (const std::string& path : paths_)
        objects_.push_back({{video_ready.name, path.c_str(), video_ready.interface}, vtable_});
}

MessagePtr VideoService::signal_video_ready(sd_bus_message& call) {
    const char* who = nullptr;
    common::check(sd_bus_message_read(&call, "s", &who), "sd_bus_message_read");
    const auto path = std::ranges::find(paths_, sd_bus_message_get_path(&call));
    Readiness& channel = channels_[static_cast<std::size_t>(path - paths_.begin())];
    channel = {channel.times + 1, who, sd_bus_message_get_sender(&call), event_log().seconds()};
    values_changed();
    return reply(call, "");
}

void VideoService::forget() {
    std::ranges::fill(channels_, Readiness{});
    values_changed();
}

std::vector<Value> VideoService::values() const {
    std::vector<Value> values;
    for (std::size_t channel = 0; channel < channels_.size(); ++channel)
        values.push_back({value_name(channel), channels_[channel].times});
    return values;
}

Json VideoService::parse_value(const std::string& /*name*/, const std::string& text) const {
    const std::optional<std::uint64_t> times = common::parse_number<std::uint64_t>(text);
    if (!times)
        throw CommandError(
            fmt::format("'{}' is not a valid count: expected an integer of at least 0", text));
    return *times;
}

void VideoService::check_settable(const std::string& name) const {
    throw CommandError(
        fmt::format("'{}' cannot be set: it counts calls of SignalVideoReady", name));
}

void VideoService::set_value(const std::string& name, const std::string& /*text*/) {
    check_settable(name);
}

Json VideoService::registrations() const {
    Json list = Json::array();
    for (std::size_t channel = 0; channel < channels_.size(); ++channel) {
        const Readiness& ready = channels_[channel];
        if (ready.times == 0)
            continue;
        list.push_back(
            {{"id", channel},
             {"client", ready.client},
             {"what",
              fmt::format("{} has video, said {}, last at {} s", common::json_line(ready.who),
                          common::counted(ready.times, "time"), Json(ready.at).dump())},
             {"who", ready.who},
             {"times", ready.times},
             {"at", ready.at}});
    }
    return list;
}

}  // namespace camera
