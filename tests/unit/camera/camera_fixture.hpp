#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "camera/camera/camera.hpp"
#include "camera/models/command_error.hpp"
#include "camera/service/event_log.hpp"
#include "common/bus/bus.hpp"

namespace camera {

/// A camera that is not on any bus, with its event log in a string.
class CameraTest : public ::testing::Test {
  protected:
    static common::EventPtr new_event() {
        sd_event* event = nullptr;
        common::check(sd_event_new(&event), "sd_event_new");
        return common::EventPtr(event);
    }

    ~CameraTest() override {
        std::fclose(stream_);
        std::free(buffer_);
    }

    /// The event log so far, without the times in front of the lines.
    std::string told() {
        std::fflush(stream_);
        std::string text;
        std::size_t begin = 0;
        const std::string all(buffer_, size_);
        for (std::size_t end = 0; (end = all.find('\n', begin)) != std::string::npos;
             begin = end + 1)
            text += all.substr(begin + 10, end + 1 - begin - 10);
        return text;
    }

    /// The sentence of the refusal that `order` meets.
    template <class Order>
    static std::string refusal(Order&& order) {
        try {
            order();
        } catch (const CommandError& refusal) {
            return refusal.what();
        }
        return "no refusal";
    }

    /// Runs the loop until nothing is due for this long.
    void run_loop(std::chrono::milliseconds quiet) {
        const auto limit = static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::microseconds>(quiet).count());
        while (common::check(sd_event_run(event_.get(), limit), "sd_event_run") > 0) {
        }
    }

    common::EventPtr event_ = new_event();
    char* buffer_ = nullptr;
    std::size_t size_ = 0;
    std::FILE* stream_ = open_memstream(&buffer_, &size_);
    EventLog event_log_{stream_, Format::text, false, nullptr};
    Camera camera_{*event_, event_log_, default_configuration(), [] {}};
};

}  // namespace camera
