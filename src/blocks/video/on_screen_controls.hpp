#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

#include "fenwa/block.hpp"
#include "src/frame/overlapping_calls.hpp"
#include "src/frame/owner_match.hpp"

namespace blocks {

/// State of an OnScreenControls.
enum class ControlsState : std::int32_t {
    Idle = 0,             ///< nothing requested yet; the next run adds the match
    AddingMatch = 1,      ///< the match is being installed, or could not be sent
    MatchAdded = 2,       ///< the match is installed; the next run asks for the owner
    QueryingOwner = 3,    ///< the owner has been asked for, or the call could not be sent
    NoOwner = 4,          ///< the service is absent; runs do nothing
    OwnerAppeared = 5,    ///< the service is there; the next run asks what it lists
    ListingFeatures = 6,  ///< the list has been asked for, or the call could not be sent
    FeaturesListed = 7,   ///< the list is known, or a request failed; the next run reconciles
    UpdatePending = 8,    ///< an update has been requested, or an addition could not be sent
    Synchronized = 9,     ///< nothing more to do; runs do nothing
    Stopped = 10,         ///< `stop()` has been called
};

/// Publishes two buttons for one video channel to the platform's on-screen controls, one that turns
/// wide dynamic range on and one that turns it off, or removes them. The service makes the web
/// request of a button when somebody presses it. No data ports.
///
/// Keys: "channel" (int, required; 0-based) and "wdr" (bool, false: publish the buttons).
///
/// The names of the buttons count the channel from 1, while the block searches for the name that
/// counts it from 0: it never finds its own, so each pass adds them again, also after a restart of
/// the service, and `stop()` removes them as often as they were added.
class OnScreenControls : public Fenwa::Block {
  public:
    /// @throws Fenwa::ConfigurationError when "channel" is missing or a key is mistyped.
    OnScreenControls(std::string name, const Fenwa::BlockConfiguration& config);
    ~OnScreenControls() override;

    /// Removes the added buttons.
    void stop() override;
    bool run() override;

  private:
    friend struct LayoutProbe;

    using Feature = std::pair<std::string, std::string>;  ///< feature id, language

    void wake() noexcept;
    void add_match();
    void check_name_owner();
    void list_added_features();
    void reconcile();
    void add_wdr_features();
    void add_features(const std::string& id, const std::string& nice_name,
                      const nlohmann::json& features);
    void remove_feature(const std::string& first, const std::string& second);
    template <auto OnReply, class... Arguments>
    int call_service(const char* member, const char* types, Arguments... arguments);
    bool take_reply(sd_bus_message* reply, const char* error_prefix, ControlsState after_error);
    static int read_features(sd_bus_message* reply, std::vector<Feature>& features);
    int add_match_callback(sd_bus_message* reply, sd_bus_error* error);
    int name_owner_changed_callback(sd_bus_message* signal, sd_bus_error* error);
    int check_name_owner_callback(sd_bus_message* reply, sd_bus_error* error);
    int list_added_features_callback(sd_bus_message* reply, sd_bus_error* error);
    int add_features_callback(sd_bus_message* reply, sd_bus_error* error);
    int remove_features_callback(sd_bus_message* reply, sd_bus_error* error);

    // The order of these members is fixed; new ones go after them.
    Fenwa::EventPort* event_port;
    Fenwa::Slot match_slot;
    Fenwa::Slot call_slot;  ///< the newest call
    ControlsState state;
    std::int32_t channel;
    bool wdr;
    Feature pending_feature;  ///< that the request under way adds or removes
    std::string feature_id;   ///< that the block searches for
    std::string language;
    std::vector<Feature> added_features;   ///< added and not yet removed, once for each addition
    std::vector<Feature> listed_features;  ///< the last list of the service

    OwnerMatch owner_match;  ///< what `match_slot` is for
    OverlappingCalls calls;
};

}  // namespace blocks
