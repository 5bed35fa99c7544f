#pragma once

#include <memory>
#include <string>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/integration/camera/wdr_document.hpp"

namespace test {

/// A camera with a client that adds buttons to its screen.
class ControlsScene : public CameraScene {
  protected:
    void SetUp() override {
        open({.activation = true});
        client_ = std::make_unique<BusClient>(address(), camera::onscreen_controls);
    }

    std::string add(const std::string& document, const char* language = "en-us") {
        return client_->call("AddFeatures", "sssa{sv}", language, "English", document.c_str(), 0);
    }
    std::string list() { return client_->call("ListAddedFeatures", "a{sv}", 0); }
    std::string remove(const char* feature, const char* language = "en-us") {
        return client_->call("RemoveFeatures", "ssa{sv}", feature, language, 0);
    }

    /// The sentence that refuses to press a button.
    std::string refusal_of(const std::string& button) const {
        const Ended ended = order({"press", button});
        EXPECT_EQ(ended.code, 2);
        EXPECT_EQ(ended.out, "");
        return ended.err;
    }

    std::unique_ptr<BusClient> client_;
};

}  // namespace test
