#pragma once

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/integration/camera/consumer_client.hpp"

namespace test {

/// A camera with consumers of its power, each on a connection of its own.
class PowerScene : public CameraScene {
  protected:
    std::unique_ptr<ConsumerClient> consumer(int channel) {
        auto client = std::make_unique<ConsumerClient>(address(), channel);
        EXPECT_EQ(client->register_consumer(), "()");
        return client;
    }

    /// What `show` has of the power controller's registrations, "NAME SHARE" each.
    [[nodiscard]] Lines shares() const {
        Lines all;
        const common::Json now = state();
        for (const common::Json& each : now["services"][1]["registrations"])
            all.push_back(each["id"].get<std::string>() + ' ' + each["share"].dump());
        return all;
    }
};

}  // namespace test
