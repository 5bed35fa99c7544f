#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>

#include "camera/services/services.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/number_text.hpp"

namespace camera {
namespace {

using common::Json;
using common::MessagePtr;

Json parse_count(const std::string& text) {
    const std::optional<std::uint64_t> count = common::parse_number<std::uint64_t>(text);
    if (!count)
        throw CommandError(
            fmt::format("'{}' is not a valid count: expected an integer of at least 0", text));
    return *count;
}

class VideoService final : public Service {
  public:
    VideoService(int channels, ServiceContext& context)
        : Service("video", context), channels_(static_cast<std::size_t>(channels)) {
        for (int channel = 0; channel < channels; ++channel)
            paths_.push_back(fmt::format("{}/{}", video_ready.path, channel));
        // In a loop of its own, because the objects refer to strings that must not move any more.
        for (const std::string& path : paths_)
            serve_object({video_ready.name, path.c_str(), video_ready.interface}, vtable_);
    }

    [[nodiscard]] std::vector<Value> values() override {
        std::vector<Value> values;
        for (std::size_t channel = 0; channel < channels_.size(); ++channel)
            values.push_back({fmt::format("video.{}", channel),
                              common::share(channels_[channel].times), parse_count, nullptr,
                              "it counts calls of SignalVideoReady"});
        return values;
    }

    [[nodiscard]] Json registrations() const override {
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

  protected:
    void forget() override {
        std::ranges::fill(channels_, Readiness{});
        values_changed();
    }

  private:
    /// The reports of one channel.
    struct Readiness {
        std::uint64_t times = 0;
        std::string who{};     ///< the argument of the last report, such as "vipd"
        std::string client{};  ///< unique name of the sender of the last report
        double at = 0.0;       ///< time of the last report, in the event log's seconds
    };

    static const sd_bus_vtable vtable_[];

    MessagePtr signal_video_ready(sd_bus_message& call, const std::string& who) {
        const auto path = std::ranges::find(paths_, sd_bus_message_get_path(&call));
        Readiness& channel = channels_[static_cast<std::size_t>(path - paths_.begin())];
        channel = {channel.times + 1, who, sd_bus_message_get_sender(&call), event_log().seconds()};
        values_changed();
        return reply(call, "");
    }

    std::vector<std::string> paths_;  // by channel, as the next
    std::vector<Readiness> channels_;
};

const sd_bus_vtable VideoService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("SignalVideoReady", SD_BUS_ARGS("s", who), SD_BUS_NO_RESULT,
                            serve<&VideoService::signal_video_ready>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

}  // namespace

std::unique_ptr<Service> make_video_service(int channels, ServiceContext& context) {
    return std::make_unique<VideoService>(channels, context);
}

}  // namespace camera
