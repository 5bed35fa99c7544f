#include "camera/models/overlay.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "camera/services/services.hpp"
#include "common/text/diagnostics.hpp"

namespace camera {
namespace {

using common::Json;
using common::MessagePtr;
using Clock = std::chrono::steady_clock;

/// More does not fit on a picture.
constexpr std::size_t max_text_bytes = 1024;

std::string summary_of(const OverlayText& text, bool shown) {
    return fmt::format("{} {}, {}", common::json_line(text.text), shown ? "is shown" : "waits",
                       text.duration == 0 ? "until it is unset"
                                          : "set for " + common::counted(text.duration, "second"));
}

class OverlayService final : public Service {
  public:
    explicit OverlayService(ServiceContext& context)
        : Service("overlay", context), expiry_(context.event) {
        serve_object(text_overlay, vtable_);
    }

    [[nodiscard]] std::vector<Value> values() override {
        return {{"overlay.text", common::share(model_.shown()),
                 [](const std::string& text) { return Json(text); }, nullptr,
                 "it shows the text that clients set"}};
    }

    [[nodiscard]] Json registrations() const override {
        Json list = Json::array();
        for (const OverlayText& text : model_.texts()) {
            const bool shown = list.empty();
            list.push_back({{"id", list.size() + 1},
                            {"client", text.client},
                            {"what", summary_of(text, shown)},
                            {"text", text.text},
                            {"duration", text.duration},
                            {"shown", shown}});
        }
        return list;
    }

  protected:
    void forget() override {
        model_.drop_all();
        texts_changed();
    }

  private:
    static const sd_bus_vtable vtable_[];

    MessagePtr set(sd_bus_message& call, const std::string& text, std::uint32_t duration) {
        if (text.empty() || text.size() > max_text_bytes)
            throw error("InvalidText", fmt::format("A text must have 1 to {} bytes, not {}.",
                                                   max_text_bytes, text.size()));
        model_.set(text, sd_bus_message_get_sender(&call), duration, Clock::now());
        texts_changed();
        return reply(call, "");
    }

    MessagePtr unset(sd_bus_message& call, const std::string& text) {
        if (!model_.unset(text))
            throw error("UnknownText", fmt::format("The text '{}' is not set.", text));
        texts_changed();
        return reply(call, "");
    }

    /// Waits for the next text to expire, and reports that values have changed.
    void texts_changed() {
        expiry_.clear();
        if (const auto end = model_.next_end())
            expiry_.once(std::max(std::chrono::ceil<std::chrono::microseconds>(*end - Clock::now()),
                                  std::chrono::microseconds(0)),
                         [this] { expire(); });
        values_changed();
    }

    void expire() {
        for (const std::string& text : model_.expire(Clock::now()))
            event_log().text_expired(name(), text);
        texts_changed();
    }

    OverlayModel model_;
    Timers expiry_;
};

const sd_bus_vtable OverlayService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Set", SD_BUS_ARGS("s", text, "u", duration), SD_BUS_NO_RESULT,
                            serve<&OverlayService::set>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Unset", SD_BUS_ARGS("s", text), SD_BUS_NO_RESULT,
                            serve<&OverlayService::unset>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

}  // namespace

std::unique_ptr<Service> make_overlay_service(ServiceContext& context) {
    return std::make_unique<OverlayService>(context);
}

}  // namespace camera
