#include "camera/services/init.hpp"

#include <fmt/core.h>

namespace camera {
namespace {

constexpr const char* unit_value = "unit";
constexpr const char* unit_name = "video-ready.service";

}  // namespace

const sd_bus_vtable InitService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("GetUnitFileState", SD_BUS_ARGS("s", file), SD_BUS_RESULT("s", state),
                            serve<&InitService::get_unit_file_state>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

std::span<const ServedObject> InitService::objects() const {
    static const ServedObject object[] = {{init_manager, vtable_}};
    return object;
}

common::MessagePtr InitService::get_unit_file_state(sd_bus_message& call) {
    const char* unit = nullptr;
    common::check(sd_bus_message_read(&call, "s", &unit), "sd_bus_message_read");
    // The error that systemd answers with, which is that of the missing file.
    if (std::string(unit) != unit_name)
        throw DBusError(SD_BUS_ERROR_FILE_NOT_FOUND, fmt::format("Unknown unit file '{}'.", unit));
    return reply(call, "s", unit_.c_str());
}

std::vector<Value> InitService::values() const {
    return {{unit_value, unit_}};
}

common::Json InitService::parse_value(const std::string& /*name*/, const std::string& text) const {
    // D-Bus strings end at the first zero byte.
    if (text.find('\0') != std::string::npos)
        throw CommandError("the state of a unit must not contain a zero byte");
    return text;
}

void InitService::set_value(const std::string& name, const std::string& text) {
    unit_ = parse_value(name, text).get<std::string>();
    event_log().value_set(this->name(), name, unit_,
                          fmt::format("{} is {}", unit_name, common::json_line(unit_)));
}

}  // namespace camera
