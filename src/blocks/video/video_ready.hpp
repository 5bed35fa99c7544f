#pragma once

#include <atomic>
#include <string>

#include "fenwa/block.hpp"

namespace blocks {

/// Tells the platform that video for one channel is available: when it starts, and again whenever
/// one of its rotation inputs is triggered, until a call succeeds. The block never calls if the
/// unit "video-ready.service" is masked or its state cannot be read.
///
/// Key: "channel" (int, required). Inputs "rotation_vip0_in" and "rotation_vip1_in" (int), whose
/// values are never read. Setting: "no_video_at_startup" (bool), whether the block calls.
///
/// All its calls are blocking. A failed one is repeated in the next run, without a pause.
class VideoReady : public Fenwa::Block {
  public:
    /// Makes one blocking call; after a failure the block never calls again.
    /// @throws Fenwa::ConfigurationError when "channel" is missing or mistyped.
    VideoReady(std::string name, const Fenwa::BlockConfiguration& config,
               const Fenwa::InitTools& tools);
    ~VideoReady() override;

    Fenwa::BlockConfiguration setup(const Fenwa::BlockConfiguration& unused) override;
    void start() override;
    bool run() override;

  private:
    friend struct LayoutProbe;

    void check_unit(const Fenwa::InitTools& tools);
    void signal_video_ready();

    Fenwa::InPort<int>* rotation_vip0_in;
    Fenwa::InPort<int>* rotation_vip1_in;
    Fenwa::EventPort* resend;
    int channel;
    std::atomic<bool> pending;  ///< a call is due
    bool enabled;               ///< the unit is there and not masked
};

}  // namespace blocks
