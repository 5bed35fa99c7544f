#pragma once

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/integration/camera/consumer_client.hpp"

namespace test {

/// A camera with consumers of its power, each on a connection of its own.
class PowerScene : public CameraScene {
  protected:
    std::unique_ptr<ConsumerClient> consumer(int channel = 0) {
        auto client = std::make_unique<ConsumerClient>(address(), channel);
        EXPECT_EQ(client->register_consumer(), "()");
        return client;
    }

    /// The registrations of the power controller, "NAME SHARE" each.
    [[nodiscard]] Lines shares() const {
        Lines all;
        const common::Json now = service("power-consumer");
        for (const common::Json& each : now["registrations"])
            all.push_back(each["id"].get<std::string>() + ' ' + each["share"].dump());
        return all;
    }

    /// The next call to a consumer that has failed, as "NAME ERROR: MESSAGE".
    std::string failure() {
        const auto line = camera().wait_for_line([](const std::string& text) {
            return text.find("\"answer\"") != std::string::npos &&
                   text.find("\"error\"") != std::string::npos;
        });
        if (!line)
            return "none";
        const common::Json event = common::parse_json(*line, "the text");
        return event["receiver"].get<std::string>() + ' ' + event["error"].get<std::string>() +
               ": " + event["message"].get<std::string>();
    }
};

}  // namespace test
