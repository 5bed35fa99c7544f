#pragma once

#include <cstdint>

#include "camera/service/service.hpp"

namespace camera {

/// Where clients say that a channel has video: bus name and interface "com.tarlo.VideoReady1", one
/// object for each channel of the camera.
///
/// What was said stays when the client leaves the bus, because there is video all the same, and is
/// forgotten when the service restarts.
///
/// Values, to be seen only: "video.CHANNEL", how often the channel was said to be ready.
class VideoService final : public Service {
  public:
    /// `channels` is at least 1; `surroundings` must outlive the service.
    VideoService(int channels, ServiceContext& surroundings);

    [[nodiscard]] std::vector<Value> values() const override;
    [[nodiscard]] common::Json parse_value(const std::string& name,
                                           const std::string& text) const override;
    void check_settable(const std::string& name) const override;
    void set_value(const std::string& name, const std::string& text) override;
    [[nodiscard]] common::Json registrations() const override;

  protected:
    [[nodiscard]] std::span<const ServedObject> objects() const override { return objects_; }
    void forget() override;

  private:
    /// What was said of a channel.
    struct Readiness {
        std::uint64_t times = 0;
        std::string who{};     ///< in the last one's own words, such as "vipd"
        std::string client{};  ///< unique name of the last one
        double at = 0.0;       ///< the last time, in the event_log's seconds
    };

    static const sd_bus_vtable vtable_[];

    common::MessagePtr signal_video_ready(sd_bus_message& call);

    std::vector<std::string> paths_;  // by channel, as all three
    std::vector<ServedObject> objects_;
    std::vector<Readiness> channels_;
};

}  // namespace camera
