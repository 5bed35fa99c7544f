#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include <utility>

#include "camera/services/services.hpp"

namespace camera {
namespace {

constexpr const char* unit_value = "unit";
constexpr const char* unit_name = "video-ready.service";

common::Json parse_state(const std::string& text) {
    // D-Bus strings end at the first zero byte.
    if (text.find('\0') != std::string::npos)
        throw CommandError("the state of a unit must not contain a zero byte");
    return text;
}

class InitService final : public Service {
  public:
    InitService(std::string state, ServiceContext& context)
        : Service("init", context), state_(std::move(state)) {
        serve_object(init_manager, vtable_);
    }

    [[nodiscard]] bool belongs_to_machine() const override { return true; }

    [[nodiscard]] std::vector<Value> values() override {
        return {{unit_value, common::share(state_), parse_state, [this](const std::string& state) {
                     state_ = state;
                     event_log().value_set(
                         name(), unit_value, state_,
                         fmt::format("{} is {}", unit_name, common::json_line(state_)));
                 }}};
    }

  private:
    static const sd_bus_vtable vtable_[];

    common::MessagePtr get_unit_file_state(sd_bus_message& call, const std::string& unit) {
        // systemd answers with this error, which is that of a missing file.
        if (unit != unit_name)
            throw DBusError(SD_BUS_ERROR_FILE_NOT_FOUND,
                            fmt::format("Unknown unit file '{}'.", unit));
        return reply(call, "s", state_.c_str());
    }

    std::string state_;
};

const sd_bus_vtable InitService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("GetUnitFileState", SD_BUS_ARGS("s", file), SD_BUS_RESULT("s", state),
                            serve<&InitService::get_unit_file_state>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

}  // namespace

std::unique_ptr<Service> make_init_service(std::string unit, ServiceContext& context) {
    return std::make_unique<InitService>(std::move(unit), context);
}

}  // namespace camera
