#include "src/blocks/video/video_ready.hpp"

#include <cstring>

#include "fenwa/bus_call.hpp"
#include "fenwa/log.hpp"
#include "fenwa/ports.hpp"
#include "fenwa/sdbus_error.hpp"
#include "src/frame/failure_line.hpp"

namespace blocks {
namespace {

/// The init system's manager.
constexpr Fenwa::BusService unit_manager{"org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                                         "org.freedesktop.systemd1.Manager"};

/// The platform's service for ready video; its objects are named after the channels.
constexpr const char* video_readiness = "com.tarlo.VideoReady1";

}  // namespace

VideoReady::VideoReady(std::string name, const Fenwa::BlockConfiguration& config,
                       const Fenwa::InitTools& tools)
    : Fenwa::Block(std::move(name), config),
      rotation_vip0_in(Fenwa::add_inport<int>(*this, "rotation_vip0_in")),
      rotation_vip1_in(Fenwa::add_inport<int>(*this, "rotation_vip1_in")),
      resend(make_eventport("resend")),
      channel(config.getInt("channel")),
      pending(true),
      enabled(true) {
    check_unit(tools);
}

VideoReady::~VideoReady() = default;

Fenwa::BlockConfiguration VideoReady::setup(const Fenwa::BlockConfiguration& /*unused*/) {
    return {{"no_video_at_startup", enabled}};
}

void VideoReady::start() {
    signal_video_ready();
}

bool VideoReady::run() {
    if (rotation_vip0_in->is_triggered() || rotation_vip1_in->is_triggered())
        pending = true;
    if (pending)
        signal_video_ready();
    return true;
}

void VideoReady::check_unit(const Fenwa::InitTools& tools) {
    Fenwa::Message reply;
    try {
        tools.sdbus_tools->call_method(unit_manager.destination, unit_manager.path,
                                       unit_manager.interface, "GetUnitFileState", reply.out(), "s",
                                       "video-ready.service");
    } catch (const Fenwa::SDBusError&) {
        // No line: the unit is unknown on platforms that do not delay video.
        enabled = false;
        return;
    }
    const char* unit_state = nullptr;
    if (const int r = sd_bus_message_read(reply.get(), "s", &unit_state); r < 0) {
        log_errno(Level::error, "Failed to parse status of video-ready.service: ", r);
        enabled = false;
        return;
    }
    if (std::strcmp(unit_state, "masked") == 0 || std::strcmp(unit_state, "masked-runtime") == 0) {
        Fenwa::ilog(static_cast<int>(Level::information))
            << "video-ready.service is masked, skipping it";
        enabled = false;
    }
}

void VideoReady::signal_video_ready() {
    if (!enabled)
        return;
    // A negative channel gives a path that sd-bus always refuses.
    const std::string path = "/com/tarlo/VideoReady1/" + std::to_string(channel);
    try {
        get_tools().sdbus_tools->call_method(video_readiness, path.c_str(), video_readiness,
                                             "SignalVideoReady", nullptr, "s", "vipd");
        pending = false;
    } catch (const Fenwa::SDBusError& error) {
        log_exception(Level::warning, "Failed to signal video enabled to : ", error);
        resend->fire();
    }
}

}  // namespace blocks
