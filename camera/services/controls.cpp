#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "camera/models/feature_store.hpp"
#include "camera/services/services.hpp"
#include "common/text/suggestion.hpp"

namespace camera {
namespace {

using common::check;
using common::Json;
using common::MessagePtr;

/// The tag appears in lines that people read.
constexpr std::size_t max_tag_bytes = 255;

std::string summary_of(const AddedFeature& added) {
    std::vector<std::string> buttons;
    for (const Button& button : added.feature.buttons)
        buttons.push_back(button.name);
    return fmt::format("{} in {} ({}), buttons: {}", added.feature.nice_name, added.language,
                       added.language_name,
                       buttons.empty() ? "none" : fmt::to_string(fmt::join(buttons, ", ")));
}

std::string request_text(const ButtonRequest& request) {
    return fmt::format("{} {}", request.type, request.url);
}

class ControlsService final : public ButtonService {
  public:
    ControlsService(ParameterStore& parameters, int channels, ServiceContext& context)
        : ButtonService("controls", context), parameters_(parameters), channels_(channels) {
        serve_object(onscreen_controls, vtable_);
    }

    void press(const std::string& button) override;

    [[nodiscard]] std::vector<Value> values() override;

    [[nodiscard]] Json registrations() const override;

  protected:
    void forget() override { features_.drop_all(); }

  private:
    static const sd_bus_vtable vtable_[];

    MessagePtr add_features(sd_bus_message& call, const std::string& language,
                            const std::string& language_name, const std::string& document);
    MessagePtr list_added_features(sd_bus_message& call);
    MessagePtr remove_features(sd_bus_message& call, const std::string& id,
                               const std::string& language);

    /// @throws CommandError with the nearest name where there is no such button.
    [[nodiscard]] const Button& button_named(const std::string& name) const;
    /// Logs the values that a parameter is.
    void log_update(const ParameterUpdate& update);

    ParameterStore& parameters_;
    int channels_;
    FeatureStore features_;
};

const sd_bus_vtable ControlsService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS(
        "AddFeatures",
        SD_BUS_ARGS("s", language, "s", language_name, "s", document, "a{sv}", options),
        SD_BUS_NO_RESULT, serve<&ControlsService::add_features>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS(
        "ListAddedFeatures", SD_BUS_ARGS("a{sv}", options), SD_BUS_RESULT("a(sas)", features),
        serve<&ControlsService::list_added_features>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS(
        "RemoveFeatures", SD_BUS_ARGS("s", feature, "s", language, "a{sv}", options),
        SD_BUS_NO_RESULT, serve<&ControlsService::remove_features>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

// Options are not read: none is known, and an unknown one changes nothing.

MessagePtr ControlsService::add_features(sd_bus_message& call, const std::string& language,
                                         const std::string& language_name,
                                         const std::string& document) {
    if (language.empty() || language.size() > max_tag_bytes)
        throw error("InvalidLanguage",
                    fmt::format("A language's tag must have 1 to {} bytes, not {}.", max_tag_bytes,
                                language.size()));
    try {
        features_.add({feature_from_document(document), language, language_name,
                       sd_bus_message_get_sender(&call)});
    } catch (const BadDocument& bad) {
        throw error("InvalidDocument", bad.what());
    }
    return reply(call, "");
}

MessagePtr ControlsService::list_added_features(sd_bus_message& call) {
    MessagePtr list = reply(call, "");
    sd_bus_message* message = list.get();
    check(sd_bus_message_open_container(message, 'a', "(sas)"), "sd_bus_message_open_container");
    for (const auto& [id, languages] : features_.languages()) {
        check(sd_bus_message_open_container(message, 'r', "sas"), "sd_bus_message_open_container");
        check(sd_bus_message_append(message, "s", id.c_str()), "sd_bus_message_append");
        check(sd_bus_message_open_container(message, 'a', "s"), "sd_bus_message_open_container");
        for (const std::string& language : languages)
            check(sd_bus_message_append(message, "s", language.c_str()), "sd_bus_message_append");
        check(sd_bus_message_close_container(message), "sd_bus_message_close_container");
        check(sd_bus_message_close_container(message), "sd_bus_message_close_container");
    }
    check(sd_bus_message_close_container(message), "sd_bus_message_close_container");
    return list;
}

MessagePtr ControlsService::remove_features(sd_bus_message& call, const std::string& id,
                                            const std::string& language) {
    if (!features_.remove(id, language))
        throw error("UnknownFeature",
                    fmt::format("Unknown feature '{}' in the language '{}'.", id, language));
    return reply(call, "");
}

const Button& ControlsService::button_named(const std::string& name) const {
    if (const Button* button = features_.button(name))
        return *button;
    const std::vector<std::string> known = features_.buttons();
    if (known.empty())
        throw CommandError(fmt::format("unknown button '{}': no client has added buttons", name));
    throw CommandError(fmt::format("unknown button '{}'", name), common::did_you_mean(name, known));
}

void ControlsService::press(const std::string& button) {
    const ButtonRequest& request = button_named(button).request;
    std::vector<ParameterUpdate> updates;
    try {
        updates = parameters_.request(request.type, request.url);
    } catch (const CommandError& error) {
        throw CommandError(
            fmt::format("the request of the button '{}' fails: {}", button, error.sentence()),
            error.help());
    }
    event_log().pressed(name(), button, request_text(request));
    for (const ParameterUpdate& update : updates)
        log_update(update);
}

void ControlsService::log_update(const ParameterUpdate& update) {
    for (int channel = 0; channel < channels_; ++channel) {
        if (update.first == wdr_parameter(channel))
            event_log().value_set(name(), fmt::format("wdr.{}", channel), update.second,
                                  fmt::format("WDR of channel {} is {}", channel, update.second));
    }
}

std::vector<Value> ControlsService::values() {
    std::vector<Value> values;
    for (int channel = 0; channel < channels_; ++channel) {
        const std::string parameter = wdr_parameter(channel);
        values.push_back({fmt::format("wdr.{}", channel),
                          common::share(parameters_.by_name(parameter).value),
                          [this, parameter](const std::string& text) {
                              parameters_.check(parameter, text);
                              return Json(text);
                          },
                          [this, parameter](const std::string& text) {
                              parameters_.set(parameter, text);
                              log_update({parameter, text});
                          }});
    }
    return values;
}

Json ControlsService::registrations() const {
    Json list = Json::array();
    for (const AddedFeature& added : features_.features()) {
        Json buttons = Json::array();
        for (const Button& button : added.feature.buttons)
            buttons.push_back({{"name", button.name},
                               {"nice_name", button.nice_name},
                               {"request", request_text(button.request)}});
        list.push_back({{"id", added.feature.name},
                        {"client", added.client},
                        {"what", summary_of(added)},
                        {"nice_name", added.feature.nice_name},
                        {"language", added.language},
                        {"language_name", added.language_name},
                        {"buttons", std::move(buttons)}});
    }
    return list;
}

}  // namespace

std::unique_ptr<ButtonService> make_controls_service(ParameterStore& parameters, int channels,
                                                     ServiceContext& context) {
    return std::make_unique<ControlsService>(parameters, channels, context);
}

}  // namespace camera
