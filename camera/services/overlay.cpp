#include "camera/services/overlay.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <stdexcept>

#include "common/text/diagnostics.hpp"

namespace camera {
namespace {

using common::check;
using common::Json;
using common::MessagePtr;
using Clock = std::chrono::steady_clock;

constexpr const char* text_value = "overlay.text";
/// More does not fit on a picture.
constexpr std::size_t max_text_bytes = 1024;

DBusError refusal(const char* name, const std::string& sentence) {
    return {std::string("com.tarlo.PrioritizedTextOverlay.Error.") + name, sentence};
}

std::string in_words(const OverlayText& text, bool shown) {
    return fmt::format("{} {}, {}", common::json_line(text.text), shown ? "is shown" : "waits",
                       text.duration == 0 ? "until it is unset"
                                          : "set for " + common::counted(text.duration, "second"));
}

}  // namespace

const sd_bus_vtable OverlayService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Set", SD_BUS_ARGS("s", text, "u", duration), SD_BUS_NO_RESULT,
                            serve<&OverlayService::set>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Unset", SD_BUS_ARGS("s", text), SD_BUS_NO_RESULT,
                            serve<&OverlayService::unset>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

std::span<const ServedObject> OverlayService::objects() const {
    static const ServedObject object[] = {{text_overlay, vtable_}};
    return object;
}

MessagePtr OverlayService::set(sd_bus_message& call) {
    const char* text = nullptr;
    std::uint32_t duration = 0;
    check(sd_bus_message_read(&call, "su", &text, &duration), "sd_bus_message_read");
    const std::string wanted = text;
    if (wanted.empty() || wanted.size() > max_text_bytes)
        throw refusal("InvalidText", fmt::format("A text must have 1 to {} bytes, not {}.",
                                                 max_text_bytes, wanted.size()));
    try {
        model_.set(wanted, sd_bus_message_get_sender(&call), duration, Clock::now());
    } catch (const std::length_error&) {
        throw refusal("TooManyTexts",
                      fmt::format("At most {} texts are accepted.", OverlayModel::max_texts));
    }
    changed();
    return reply(call, "");
}

MessagePtr OverlayService::unset(sd_bus_message& call) {
    const char* text = nullptr;
    check(sd_bus_message_read(&call, "s", &text), "sd_bus_message_read");
    if (!model_.unset(text))
        throw refusal("UnknownText", fmt::format("The text '{}' is not set.", text));
    changed();
    return reply(call, "");
}

void OverlayService::changed() {
    alarm_.clear();
    if (const auto end = model_.next_end())
        alarm_.once(std::max(std::chrono::ceil<std::chrono::microseconds>(*end - Clock::now()),
                             std::chrono::microseconds(0)),
                    [this] { end_of_time(); });
    values_changed();
}

void OverlayService::end_of_time() {
    for (const std::string& text : model_.expire(Clock::now()))
        event_log().text_expired(name(), text);
    changed();
}

void OverlayService::forget() {
    model_.drop_all();
    changed();
}

std::vector<Value> OverlayService::values() const {
    return {{text_value, model_.shown()}};
}

Json OverlayService::parse_value(const std::string& /*name*/, const std::string& text) const {
    return text;
}

void OverlayService::check_settable(const std::string& name) const {
    throw CommandError(fmt::format("'{}' cannot be set: it shows the text that clients set", name));
}

void OverlayService::set_value(const std::string& name, const std::string& /*text*/) {
    check_settable(name);
}

Json OverlayService::registrations() const {
    Json list = Json::array();
    for (const OverlayText& text : model_.texts()) {
        const bool shown = list.empty();
        list.push_back({{"id", list.size() + 1},
                        {"client", text.client},
                        {"what", in_words(text, shown)},
                        {"text", text.text},
                        {"duration", text.duration},
                        {"shown", shown}});
    }
    return list;
}

}  // namespace camera
