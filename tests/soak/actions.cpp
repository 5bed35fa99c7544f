#include "tests/soak/actions.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>

#include "tests/soak/stalls.hpp"

namespace soak {
namespace {

using Effect = Fault::Effect;

constexpr std::uint64_t longest_rest = 200;   // milliseconds
constexpr std::uint64_t longest_delay = 800;  // milliseconds; shorter than the call time-out
constexpr int owner_changes = 500;            // of one flood

/// A message that a fault rule can be for.
struct Target {
    const char* member;
    bool is_answer;  ///< to a call of a block, which can be refused
};
constexpr Target targets[] = {
    {"temperature.GetTemperatureIdFromName", true},
    {"temperature.GetTemperature", true},
    {"temperature.RegisterForTemperatureChangeSignal", true},
    {"temperature.RegisterForTemperatureSignal", true},
    {"temperature.TemperatureChangeSignal", false},
    {"temperature.TemperatureSignal", false},
    {"power-consumer.Register", true},
    {"power-consumer.RequestPower", true},
    {"power-consumer.Unregister", true},
    {"power-consumer.SetPower", false},
    {"power-status.Get", true},
    {"power-status.PowerReceived", true},
    {"power-status.PropertiesChanged", false},
    {"controls.ListAddedFeatures", true},
    {"controls.AddFeatures", true},
    {"controls.RemoveFeatures", true},
    {"overlay.Set", true},
    {"overlay.Unset", true},
    {"video.SignalVideoReady", true},
    {"init.GetUnitFileState", true},
};

std::vector<Target> targets_of(const std::string& service) {
    std::vector<Target> found;
    std::ranges::copy_if(targets, std::back_inserter(found), [&](const Target& target) {
        return std::string_view(target.member).starts_with(service + '.');
    });
    return found;
}

constexpr const char* blocks[] = {"video", "greeting", "buttons", "reader",
                                  "guard", "power",    "supply"};

}  // namespace

void Actions::begin_round() {
    ++rounds_;
    std::seed_seq seeds{seed_, seed_ >> 32, rounds_};
    random_.seed(seeds);
    disturbed_.clear();
    while (disturbed_.empty()) {
        for (const char* const service : services) {
            if (one_in(2))
                disturbed_.push_back(service);
        }
    }
    set_values({.temperature = cool(), .received = enough(), .budget = 20.0});
}

void Actions::do_next() {
    // Out of 100; the most frequent events of a camera come first.
    const std::uint64_t kind = draw(100);
    if (kind < 28)
        change_value();
    else if (kind < 50)
        set_fault();
    else if (kind < 66)
        crash_with_fault();
    else if (kind < 74)
        scene_.stop(draw_service());
    else if (kind < 80)
        scene_.restart(draw_service());
    else if (kind < 84)
        scene_.start(draw_service());
    else if (kind < 90)
        change_settings();
    else if (kind < 94)
        rebuild(blocks[draw(std::size(blocks))]);
    else if (kind < 96)
        turn();
    else if (kind < 98)
        scene_.press(one_in(2) ? "activateWDR1" : "deactivateWDR1");
    else
        scene_.change_owners(owner_changes);
    std::this_thread::sleep_for(std::chrono::milliseconds(draw(longest_rest)));
}

void Actions::change_value() {
    Values values = wanted_.values;
    switch (draw(3)) {
        case 0:
            values.temperature = one_in(3) ? hot() : cool();
            break;
        case 1:
            values.received = one_in(3) ? too_little() : enough();
            break;
        default:
            values.budget = one_in(3) ? 20.0 : other_budget();
            break;
    }
    set_values(values);
}

double Actions::other_budget() {
    // Whole numbers from 2 to 11, of which the last one is left out.
    const auto last = static_cast<std::uint64_t>(wanted_.values.budget);
    const std::uint64_t next = 2 + draw(9);
    return static_cast<double>(next < last ? next : next + 1);
}

void Actions::set_values(const Values& values) {
    const auto set = [this](const char* name, double from, double to) {
        if (from != to)
            scene_.set(name, to);
    };
    set("temperature.main", wanted_.values.temperature, values.temperature);
    set("power.received", wanted_.values.received, values.received);
    set("power.budget", wanted_.values.budget, values.budget);
    wanted_.values = values;
}

void Actions::set_fault() {
    const std::vector<Target> possible = targets_of(draw_service());
    const Target& target = possible[draw(possible.size())];
    Fault fault{target.member, Effect::late, 1 + static_cast<int>(draw(3)),
                std::chrono::milliseconds(1 + draw(longest_delay))};
    constexpr std::array effects{Effect::late, Effect::malformed, Effect::silent, Effect::drop,
                                 Effect::error};
    // Only an answer can be an error.
    fault.effect = effects.at(draw(target.is_answer ? 5 : 4));
    // More than any block tries in a row.
    if (fault.effect == Effect::error && one_in(4))
        fault.times = 15;
    scene_.fail(fault);
}

void Actions::crash_with_fault() {
    // Its clients meet the fault in what they do after the loss.
    const char* const service = draw_service();
    for (const Target& target : targets_of(service)) {
        if (target.is_answer && one_in(2)) {
            constexpr std::array effects{Effect::late, Effect::malformed, Effect::error};
            scene_.fail({target.member, effects.at(draw(effects.size())), 1,
                         std::chrono::milliseconds(1 + draw(longest_delay))});
        }
    }
    scene_.stop(service);
}

void Actions::change_settings() {
    Settings& settings = wanted_.settings;
    const char* built_anew = "";
    switch (draw(6)) {
        case 0:
            settings.fake = !settings.fake;
            settings.fake_value = 90.0 + static_cast<double>(draw(10));
            break;
        case 1:
            settings.delta = settings.delta == 0.5 ? 0.75 : 0.5;
            built_anew = "reader";
            break;
        case 2:
            settings.high_off = settings.high_off == 70.0 ? 72.0 : 70.0;
            built_anew = "guard";
            break;
        case 3:
            settings.power = settings.power == 12.0 ? 14.0 : 12.0;
            built_anew = "power";
            break;
        case 4:
            settings.requested_power = settings.requested_power == 15.0 ? 17.0 : 15.0;
            built_anew = "supply";
            break;
        default:
            change_text();
            break;
    }
    settings.interval = 700 + static_cast<int>(draw(600));
    forget_stalls(built_anew, scene_.incidents());
    reload();
}

void Actions::change_text() {
    std::string& text = wanted_.settings.text;
    text = text == "Good morning" ? "Good evening" : "Good morning";
    forget_stalls("greeting", scene_.incidents());
}

void Actions::reload() {
    scene_.reload(wanted_.settings);
    ++reloads_;
}

void Actions::rebuild(const char* block) {
    forget_stalls(block, scene_.incidents());
    scene_.rebuild(block);
    ++rebuilds_;
}

void Actions::turn() {
    scene_.turn(90 * static_cast<int>(draw(4)));
}

void Actions::leave_alone() {
    for (const Target& target : targets)
        scene_.clear_fault(target.member);
    for (const char* const service : services)
        scene_.start(service);
}

void Actions::change_everything() {
    wanted_.settings.fake = false;  // readings show whether the reader works
    change_text();
    reload();
    const bool was_hot = wanted_.values.temperature > 70.0;
    const bool had_enough = wanted_.values.received > 18.0;
    set_values({.temperature = was_hot ? cool() : hot(),
                .received = had_enough ? too_little() : enough(),
                .budget = other_budget()});
    // Before the picture is turned, so that the report differs from earlier ones.
    wanted_.video_times = video_times(scene_.show()) + 1;
    turn();
}

}  // namespace soak
