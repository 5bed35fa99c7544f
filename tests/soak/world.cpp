#include "tests/soak/world.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace soak {
namespace {

using common::Json;

/// One comparison of everything.
class Comparison {
  public:
    Comparison(const Scene& scene, const Wanted& wanted)
        : scene_(scene),
          wanted_(wanted),
          camera_(scene.show()),
          values_(camera_.at("values")),
          host_(scene.describe()) {}

    std::vector<Difference> make() {
        compare_values();
        compare_reader();
        compare_guard();
        compare_power();
        compare_supply();
        compare_buttons();
        compare_greeting();
        compare_video();
        if (scene_.observer().lines_of("tick.out") < wanted_.ticks)
            differ("tick", "the timer does not tick");
        return std::move(found_);
    }

  private:
    void differ(const char* block, const std::string& text) { found_.push_back({block, text}); }

    /// @param right what the output must be.
    void expect_output(const char* block, const char* port, const Json& right) {
        const std::string name = fmt::format("{}.{}", block, port);
        const Json last = scene_.observer().last_value(name);
        const Json now = value_of(block, port);
        if (now != right)
            differ(block, fmt::format("{} is {}, not {}", name, now.dump(), right.dump()));
        else if (last != right)
            differ(block, fmt::format("the last line of {} has {}, not {}", name, last.dump(),
                                      right.dump()));
    }

    [[nodiscard]] Json value_of(const char* block, const char* port) const {
        for (const Json& each : host_.at("blocks")) {
            if (each.at("name") != block)
                continue;
            for (const Json& output : each.at("outputs")) {
                if (output.at("name") == port)
                    return output.at("value");
            }
        }
        return {};
    }

    /// The registrations of the host at a service.
    [[nodiscard]] std::vector<Json> registrations(const char* service) const {
        std::vector<Json> own;
        for (const Json& each : camera_.at("services")) {
            if (each.at("name") != service)
                continue;
            for (const Json& registration : each.at("registrations")) {
                if (registration.at("client") == scene_.host_name())
                    own.push_back(registration);
            }
        }
        return own;
    }

    /// The camera keeps what it was set to through every restart: no fault is its own.
    void compare_values() {
        const auto expect = [this](const char* name, double right) {
            if (values_.at(name) != right)
                differ("camera",
                       fmt::format("{} is {}, not {}", name, values_.at(name).dump(), right));
        };
        expect("temperature.main", wanted_.values.temperature);
        expect("power.received", wanted_.values.received);
        expect("power.budget", wanted_.values.budget);
    }

    void compare_reader() {
        const Settings& settings = wanted_.settings;
        expect_output("reader", "temperature_out",
                      settings.fake ? Json(settings.fake_value) : values_.at("temperature.main"));
        const auto own = registrations("temperature");
        if (std::ranges::none_of(
                own, [&](const Json& each) { return each.value("delta", 0.0) == settings.delta; }))
            differ("reader", fmt::format("no registration for changes by {}", settings.delta));
    }

    void compare_guard() {
        const Settings& settings = wanted_.settings;
        // Never between the limits, where the verdict depends on the past.
        const bool hot = values_.at("temperature.main") > settings.high_off;
        expect_output("guard", "temperature_ok_out", !hot);
        const auto own = registrations("temperature");
        const auto expect_limit = [&](double limit, bool rising) {
            if (std::ranges::none_of(own, [&](const Json& each) {
                    return each.contains("limit") && each.at("limit") == limit &&
                           each.at("rising") == rising;
                }))
                differ("guard", fmt::format("no registration for the limit {}", limit));
        };
        expect_limit(-998.0, true);
        expect_limit(settings.high_on, false);
        expect_limit(-1000.0, false);
        expect_limit(settings.high_off, true);
    }

    void compare_power() {
        const Settings& settings = wanted_.settings;
        const auto own = registrations("power-consumer");
        if (own.size() != 1 || own.front().at("id") != "vipd0" ||
            own.front().at("request") != Json{{"kind", "control"}, {"power", settings.power}})
            return differ("power", "its registration is " + Json(own).dump());
        const double share = std::min(settings.power, wanted_.values.budget);
        if (own.front().at("share") != share)
            differ("camera", "the share is " + own.front().at("share").dump());
        expect_output("power", "power_out", share);
    }

    void compare_supply() {
        expect_output(
            "supply", "power_ok_out",
            wanted_.settings.requested_power <= values_.at("power.received").get<double>());
    }

    void compare_buttons() {
        const auto own = registrations("controls");
        const bool right = own.size() == 1 && own.front().at("id") == "WDR1" &&
                           own.front().at("language") == "en-us" &&
                           own.front().at("buttons").size() == 2;
        if (!right)
            differ("buttons", "its buttons are " + Json(own).dump());
    }

    void compare_greeting() {
        const auto own = registrations("overlay");
        const auto is_wanted = [this](const Json& each) {
            return each.at("text") == wanted_.settings.text;
        };
        if (std::ranges::none_of(own, is_wanted))
            differ("greeting", "its text is not set: " + Json(own).dump());
        if (!std::ranges::all_of(own, is_wanted))
            differ("earlier greeting", "an earlier text is still set: " + Json(own).dump());
    }

    void compare_video() {
        const auto own = registrations("video");
        const bool right = own.size() == 1 && own.front().at("id") == 0 &&
                           own.front().at("who") == "vipd" &&
                           video_times(camera_) >= wanted_.video_times;
        if (!right)
            differ("video", fmt::format("fewer than {} reports of ready video: {}",
                                        wanted_.video_times, Json(own).dump()));
    }

    const Scene& scene_;
    const Wanted& wanted_;
    const Json camera_;
    const Json& values_;
    const Json host_;
    std::vector<Difference> found_;
};

}  // namespace

std::vector<Difference> differences(const Scene& scene, const Wanted& wanted) {
    return Comparison(scene, wanted).make();
}

std::string status_of(const Scene& scene, const std::string& block) {
    const Json host = scene.describe();
    for (const Json& each : host.at("blocks")) {
        if (each.at("name") == block)
            return each.at("status").dump();
    }
    return "no block of this name";
}

std::uint64_t video_times(const Json& camera) {
    return camera.at("values").at("video.0").get<std::uint64_t>();
}

}  // namespace soak
