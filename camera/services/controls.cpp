#include "camera/services/controls.hpp"

#include <fmt/core.h>

#include <stdexcept>

#include "common/text/suggestion.hpp"

namespace camera {
namespace {

using common::check;
using common::Json;
using common::MessagePtr;

/// A language's tag ends up in lines that people read.
constexpr std::size_t max_tag_bytes = 255;

std::string wdr_value(int channel) {
    return fmt::format("wdr.{}", channel);
}

DBusError refusal(const char* name, const std::string& sentence) {
    return {std::string("com.tarlo.Onscreencontrols1.Error.") + name, sentence};
}

std::string in_words(const AddedFeature& added) {
    std::string buttons;
    for (const Button& button : added.feature.buttons)
        buttons.append(buttons.empty() ? "" : ", ").append(button.name);
    return fmt::format("{} in {} ({}), buttons: {}", added.feature.nice_name, added.language,
                       added.language_name, buttons.empty() ? "none" : buttons);
}

std::string request_text(const ButtonRequest& request) {
    return fmt::format("{} {}", request.type, request.url);
}

}  // namespace

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

std::span<const ServedObject> ControlsService::objects() const {
    static const ServedObject object[] = {{onscreen_controls, vtable_}};
    return object;
}

MessagePtr ControlsService::add_features(sd_bus_message& call) {
    const char* language = nullptr;
    const char* language_name = nullptr;
    const char* document = nullptr;
    // No option is known, and an unknown one changes nothing.
    check(sd_bus_message_read(&call, "sss", &language, &language_name, &document),
          "sd_bus_message_read");
    const std::string tag = language;
    if (tag.empty() || tag.size() > max_tag_bytes)
        throw refusal("InvalidLanguage",
                      fmt::format("A language's tag must have 1 to {} bytes, not {}.",
                                  max_tag_bytes, tag.size()));
    try {
        features_.add(
            {read_feature(document), tag, language_name, sd_bus_message_get_sender(&call)});
    } catch (const BadDocument& bad) {
        throw refusal("InvalidDocument", bad.what());
    } catch (const std::length_error&) {
        throw refusal("TooManyFeatures",
                      fmt::format("At most {} features are accepted.", FeatureStore::max_features));
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

MessagePtr ControlsService::remove_features(sd_bus_message& call) {
    const char* id = nullptr;
    const char* language = nullptr;
    check(sd_bus_message_read(&call, "ss", &id, &language), "sd_bus_message_read");
    if (!features_.remove(id, language))
        throw refusal("UnknownFeature",
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
    } catch (const CommandError& no) {
        throw CommandError(
            fmt::format("the request of the button '{}' fails: {}", button, no.sentence()),
            no.help());
    }
    event_log().pressed(name(), button, request_text(request));
    for (const ParameterUpdate& update : updates)
        tell(update);
}

void ControlsService::tell(const ParameterUpdate& update) {
    for (int channel = 0; channel < channels_; ++channel) {
        if (update.first == wdr_parameter(channel))
            event_log().value_set(name(), wdr_value(channel), update.second,
                                  fmt::format("WDR of channel {} is {}", channel, update.second));
    }
}

std::vector<Value> ControlsService::values() const {
    std::vector<Value> values;
    for (int channel = 0; channel < channels_; ++channel)
        values.push_back({wdr_value(channel), parameters_.by_name(wdr_parameter(channel)).value});
    return values;
}

std::string ControlsService::parameter_of(const std::string& value) const {
    for (int channel = 0; channel < channels_; ++channel) {
        if (value == wdr_value(channel))
            return wdr_parameter(channel);
    }
    throw CommandError(fmt::format("unknown value '{}'", value));
}

Json ControlsService::parse_value(const std::string& name, const std::string& text) const {
    parameters_.check(parameter_of(name), text);
    return text;
}

void ControlsService::set_value(const std::string& name, const std::string& text) {
    const std::string parameter = parameter_of(name);
    parameters_.set(parameter, text);
    tell({parameter, text});
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
                        {"what", in_words(added)},
                        {"nice_name", added.feature.nice_name},
                        {"language", added.language},
                        {"language_name", added.language_name},
                        {"buttons", std::move(buttons)}});
    }
    return list;
}

}  // namespace camera
