// Channels that clients say have video.
#include <gmock/gmock.h>

#include <regex>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using ::testing::IsEmpty;
using ::testing::StartsWith;

class VideoReadiness : public CameraScene {
  protected:
    /// A client of one channel.
    [[nodiscard]] std::unique_ptr<BusClient> client(int channel) const {
        const std::string path = "/com/tarlo/VideoReady1/" + std::to_string(channel);
        paths_.push_back(std::make_unique<std::string>(path));
        return std::make_unique<BusClient>(
            address(), camera::BusObject{camera::video_ready.name, paths_.back()->c_str(),
                                         camera::video_ready.interface});
    }
    static std::string signal(BusClient& client, const char* who = "vipd") {
        return client.call("SignalVideoReady", "s", who);
    }

    mutable std::vector<std::unique_ptr<std::string>> paths_;  // that clients refer to
};

TEST_F(VideoReadiness, IsCountedForEachChannel) {
    open();
    const auto first = client(0);
    const auto second = client(1);
    EXPECT_EQ(signal(*second), "()");
    EXPECT_EQ(signal(*second, "other"), "()");
    EXPECT_EQ(value("video.0"), 0);
    EXPECT_EQ(value("video.1"), 2);
    EXPECT_EQ(signal(*first), "()");
    EXPECT_EQ(value("video.0"), 1);
}

TEST_F(VideoReadiness, IsShownWithWhoSaidItLastAndWhen) {
    open();
    const auto one = client(1);
    EXPECT_EQ(signal(*one), "()");
    EXPECT_EQ(signal(*one, "other"), "()");
    common::Json shown = service("video")["registrations"];
    ASSERT_EQ(shown.size(), 1U) << "nothing was said of the other channel";
    const double at = shown[0]["at"];
    EXPECT_GT(at, 0.0);
    EXPECT_LT(at, 30.0);
    EXPECT_EQ(common::json_line(shown),
              R"([{"id":1,"client":")" + one->unique_name() +
                  R"(","what":"\"other\" has video, said 2 times, last at )" +
                  common::Json(at).dump() + R"( s","who":"other","times":2,"at":)" +
                  common::Json(at).dump() + "}]");
}

TEST_F(VideoReadiness, ThereIsAnObjectForEachChannelOfTheConfiguration) {
    open({.run = {"--config", folder().write("c.toml", "[video]\nchannels = 3\n")}});
    const auto third = client(2);
    EXPECT_EQ(signal(*third), "()");
    EXPECT_EQ(value("video.2"), 1);
    const std::string unknown = "org.freedesktop.DBus.Error.UnknownObject: ";
    EXPECT_EQ(signal(*client(3)), unknown + "Unknown object '/com/tarlo/VideoReady1/3'.");
    EXPECT_EQ(value("wdr.2"), "off");
}

TEST_F(VideoReadiness, OutlivesTheClientAndNotARestart) {
    open({.activation = true});
    auto one = client(0);
    EXPECT_EQ(signal(*one), "()");
    one.reset();
    EXPECT_EQ(value("video.0"), 1);
    handle({"restart", "video"});
    EXPECT_EQ(value("video.0"), 0);
    EXPECT_THAT(service("video")["registrations"], IsEmpty());
    handle({"stop", "video"});
    EXPECT_EQ(signal(*client(1)), "()") << "a call brings it up";
    EXPECT_EQ(value("video.1"), 1);
}

TEST_F(VideoReadiness, MayFailForAWhile) {
    open({.activation = true});
    handle({"fail", "SignalVideoReady", "--error", "com.example.Error.Busy", "--times", "2"});
    const auto one = client(0);
    const std::string busy = "com.example.Error.Busy: A fault rule answers this call.";
    EXPECT_EQ(signal(*one), busy);
    EXPECT_EQ(signal(*one), busy);
    EXPECT_EQ(signal(*one), "()");
    EXPECT_EQ(value("video.0"), 1) << "a call that fails says nothing";
    handle({"fail", "video.SignalVideoReady", "--drop", "--times", "1"});
    EXPECT_THAT(signal(*one), StartsWith("org.freedesktop.DBus.Error.NoReply: "));
    EXPECT_EQ(signal(*one), "()");
    EXPECT_EQ(value("video.0"), 1) << "it was forgotten with the process";
}

}  // namespace
}  // namespace test
