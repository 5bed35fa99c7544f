#include "src/blocks/video/on_screen_controls.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "fenwa/bus_call.hpp"
#include "fenwa/log.hpp"
#include "src/frame/failure_line.hpp"
#include "src/frame/name_owner.hpp"

namespace blocks {
namespace {

using nlohmann::json;

/// The platform's service that shows controls over the video.
constexpr Fenwa::BusService on_screen_controls{
    "com.tarlo.Onscreencontrols1", "/com/tarlo/Onscreencontrols1", "com.tarlo.Onscreencontrols1"};

constexpr const char* list_failure_prefix = "Failed to call method ListAddedFeatures: ";
constexpr const char* add_failure_prefix = "Failed to call method AddFeatures: ";
constexpr const char* remove_failure_prefix = "Failed to call method RemoveFeatures: ";

/// One button with its web request.
json button(const std::string& name, const std::string& nice_name, const std::string& info,
            const std::string& request_url) {
    return {
        {"user", json::array({"operator"})},
        {"name", name},
        {"niceName", nice_name},
        {"info", info},
        {"requestType", "GET"},
        {"requestPayload", "JSON"},
        {"response", false},
        {"requestURL", request_url},
    };
}

/// Logs a failed step of reading a body. @returns the step's result.
int logged(int r, const char* prefix) {
    if (r < 0)
        log_errno(Level::warning, prefix, r);
    return r;
}

}  // namespace

OnScreenControls::OnScreenControls(std::string name, const Fenwa::BlockConfiguration& config)
    : Fenwa::Block(std::move(name), config),
      event_port(make_eventport("event_port")),
      state(ControlsState::Idle),
      channel(config.getInt("channel")),
      wdr(config.getBool("wdr", false)),
      feature_id("WDR" + std::to_string(channel)),
      language("en-us") {
    wake();
}

OnScreenControls::~OnScreenControls() {
    call_slot.reset();
    match_slot.reset();
}

void OnScreenControls::stop() {
    match_slot.reset();
    call_slot.reset();
    calls.release();
    owner_match.released();
    state = ControlsState::Stopped;
    for (const auto& [first, second] : added_features) {
        const int r =
            Fenwa::call_without_reply(Fenwa::bus_of(*this), on_screen_controls, "RemoveFeatures",
                                      "ssa{sv}", first.c_str(), second.c_str(), 0U);
        if (r < 0)
            log_errno(Level::warning, ("Failed to remove feature \"" + first + "\": ").c_str(), r);
    }
}

bool OnScreenControls::run() {
    switch (state) {
        case ControlsState::Idle:
            add_match();
            break;
        case ControlsState::MatchAdded:
            check_name_owner();
            break;
        case ControlsState::OwnerAppeared:
            list_added_features();
            break;
        case ControlsState::FeaturesListed:
            reconcile();
            break;
        case ControlsState::AddingMatch:
        case ControlsState::QueryingOwner:
        case ControlsState::NoOwner:
        case ControlsState::ListingFeatures:
        case ControlsState::UpdatePending:
        case ControlsState::Synchronized:
        case ControlsState::Stopped:
            break;
    }
    return true;
}

void OnScreenControls::wake() noexcept {
    if (state != ControlsState::Stopped)
        event_port->fire();
}

void OnScreenControls::add_match() {
    owner_match.install_async<&OnScreenControls::name_owner_changed_callback,
                              &OnScreenControls::add_match_callback>(Fenwa::bus_of(*this),
                                                                     match_slot, *this);
    state = ControlsState::AddingMatch;
}

void OnScreenControls::check_name_owner() {
    calls.make_room(call_slot);
    calls.sent(query_owner_async<&OnScreenControls::check_name_owner_callback>(
        Fenwa::bus_of(*this), call_slot, on_screen_controls.destination, *this));
    state = ControlsState::QueryingOwner;
}

void OnScreenControls::list_added_features() {
    const int r = call_service<&OnScreenControls::list_added_features_callback>("ListAddedFeatures",
                                                                                "a{sv}", 0U);
    state = ControlsState::ListingFeatures;
    if (r < 0)
        log_errno(Level::error, list_failure_prefix, r);
}

void OnScreenControls::reconcile() {
    if (wdr) {
        if (std::ranges::find(added_features, Feature(feature_id, language)) !=
            added_features.end())
            state = ControlsState::Synchronized;
        else
            add_wdr_features();
        return;
    }
    bool called = false;
    for (const auto& [first, second] : listed_features) {
        if (first == feature_id) {
            remove_feature(first, second);
            called = true;
        } else if (!called) {
            state = ControlsState::Synchronized;
        }
    }
}

void OnScreenControls::add_wdr_features() {
    const std::string n = std::to_string(std::int64_t{channel} + 1);
    const std::string url = "/tarlo-cgi/param.cgi?action=update&ImageSource.I" +
                            std::to_string(channel) + ".Sensor.WDR=";
    add_features("WDR" + n, "WDR " + n,
                 json::array({
                     button("activateWDR" + n, "Turn on WDR " + n,
                            "Turn on WDR to make both dark and bright areas of the image visible "
                            "on channel " +
                                n,
                            url + "on"),
                     button("deactivateWDR" + n, "Turn off WDR " + n,
                            "Turn off WDR on channel " + n, url + "off"),
                 }));
}

void OnScreenControls::add_features(const std::string& id, const std::string& nice_name,
                                    const json& features) {
    const json document{
        {"name", id},
        {"niceName", nice_name},
        {"featureGroups", json::array()},
        {"features", features},
    };
    const int r = call_service<&OnScreenControls::add_features_callback>(
        "AddFeatures", "sssa{sv}", language.c_str(), "English", document.dump().c_str(), 0U);
    if (r < 0)
        log_errno(Level::error, add_failure_prefix, r);
    else
        pending_feature = {id, "en-us"};
    state = ControlsState::UpdatePending;
}

void OnScreenControls::remove_feature(const std::string& first, const std::string& second) {
    const int r = call_service<&OnScreenControls::remove_features_callback>(
        "RemoveFeatures", "ssa{sv}", first.c_str(), second.c_str(), 0U);
    if (r < 0) {
        log_errno(Level::error, remove_failure_prefix, r);
        return;
    }
    pending_feature = {first, second};
    state = ControlsState::UpdatePending;
}

template <auto OnReply, class... Arguments>
int OnScreenControls::call_service(const char* member, const char* types, Arguments... arguments) {
    calls.make_room(call_slot);
    return calls.sent(Fenwa::call_async<OnReply>(
        Fenwa::bus_of(*this), call_slot, on_screen_controls, member, *this, types, arguments...));
}

int OnScreenControls::add_match_callback(sd_bus_message* reply, sd_bus_error* /*error*/) {
    const bool installed = owner_match_installed(reply);
    owner_match.answered(installed);
    if (!installed)
        owner_match.discard(match_slot);
    state = installed ? ControlsState::MatchAdded : ControlsState::Idle;
    event_port->fire();
    return 0;
}

int OnScreenControls::name_owner_changed_callback(sd_bus_message* signal, sd_bus_error* /*error*/) {
    OwnerChange change;
    if (const int r = take_owner_change(signal, change); r < 0)
        return r;
    if (change.is_of(on_screen_controls.destination)) {
        // In every state, also when stopped.
        state = state_after<ControlsState>(change);
        event_port->fire();
    } else {
        wake();
    }
    return 0;
}

int OnScreenControls::check_name_owner_callback(sd_bus_message* reply, sd_bus_error* /*error*/) {
    calls.answered();
    const OwnerAnswer answer = read_owner_answer(reply);
    state = state_after<ControlsState>(answer);
    // No wake-up after an unreadable answer: the next run for another reason asks again.
    if (answer.kind != OwnerAnswer::Kind::unreadable)
        event_port->fire();
    return answer.result;
}

/// Checks a reply to any method of the service.
/// @returns false for an error, which is logged, changes the state and wakes the block.
bool OnScreenControls::take_reply(sd_bus_message* reply, const char* error_prefix,
                                  ControlsState after_error) {
    calls.answered();
    if (sd_bus_message_is_method_error(reply, nullptr) == 0)
        return true;
    log_error_message(error_prefix, reply);
    state = after_error;
    event_port->fire();
    return false;
}

/// Reads an array of ids, each with its languages, as one pair for each language.
/// @returns a negative errno, logged, for any other body.
int OnScreenControls::read_features(sd_bus_message* reply, std::vector<Feature>& features) {
    int r = logged(sd_bus_message_enter_container(reply, SD_BUS_TYPE_ARRAY, "(sas)"),
                   "Failed to enter array: ");
    if (r < 0)
        return r;
    while ((r = logged(sd_bus_message_enter_container(reply, SD_BUS_TYPE_STRUCT, "sas"),
                       "Failed to enter struct: ")) > 0) {
        const char* id = nullptr;
        r = logged(sd_bus_message_read_basic(reply, SD_BUS_TYPE_STRING, &id),
                   "Failed to read string: ");
        if (r < 0)
            return r;
        r = logged(sd_bus_message_enter_container(reply, SD_BUS_TYPE_ARRAY, "s"),
                   "Failed to enter sub-array: ");
        if (r < 0)
            return r;
        const char* language = nullptr;
        while ((r = logged(sd_bus_message_read_basic(reply, SD_BUS_TYPE_STRING, &language),
                           "Failed to read sub-string: ")) > 0)
            features.emplace_back(id, language);
        if (r < 0)
            return r;
        r = logged(sd_bus_message_exit_container(reply), "Failed to exit sub-array: ");
        if (r < 0)
            return r;
        r = logged(sd_bus_message_exit_container(reply), "Failed to exit struct: ");
        if (r < 0)
            return r;
    }
    if (r < 0)
        return r;
    return logged(sd_bus_message_exit_container(reply), "Failed to exit container: ");
}

int OnScreenControls::list_added_features_callback(sd_bus_message* reply, sd_bus_error* /*error*/) {
    if (!take_reply(reply, list_failure_prefix, ControlsState::OwnerAppeared))
        return 0;
    std::vector<Feature> features;
    if (const int r = read_features(reply, features); r < 0)
        return r;
    listed_features = std::move(features);
    state = ControlsState::FeaturesListed;
    wake();
    return 0;
}

int OnScreenControls::add_features_callback(sd_bus_message* reply, sd_bus_error* /*error*/) {
    if (!take_reply(reply, add_failure_prefix, ControlsState::FeaturesListed))
        return 0;
    added_features.push_back(std::exchange(pending_feature, {}));
    state = ControlsState::Synchronized;
    event_port->fire();
    return 0;
}

int OnScreenControls::remove_features_callback(sd_bus_message* reply, sd_bus_error* /*error*/) {
    if (!take_reply(reply, remove_failure_prefix, ControlsState::FeaturesListed))
        return 0;
    if (const auto found = std::ranges::find(added_features, pending_feature);
        found != added_features.end())
        added_features.erase(found);
    state = ControlsState::Synchronized;
    event_port->fire();
    return 0;
}

}  // namespace blocks
