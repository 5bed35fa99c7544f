#include "src/frame/name_owner.hpp"

namespace blocks {

void log_owner_match_failure(int r) {
    log_errno(Level::error, "Failed to add match for NameOwnerChanged: ", r);
}

bool owner_match_installed(sd_bus_message* reply) {
    if (sd_bus_message_is_method_error(reply, nullptr) == 0)
        return true;
    log_error_message("Error when adding match for NameOwnerChanged: ", reply);
    return false;
}

OwnerAnswer read_owner_answer(sd_bus_message* reply) {
    if (sd_bus_message_is_method_error(reply, SD_BUS_ERROR_NAME_HAS_NO_OWNER) != 0)
        return {OwnerAnswer::Kind::not_owned, 0};
    if (sd_bus_message_is_method_error(reply, nullptr) != 0) {
        return {OwnerAnswer::Kind::refused,
                log_error_message("Error when retrieving NameOwner: ", reply)};
    }
    const char* owner = nullptr;
    const int r = sd_bus_message_read(reply, "s", &owner);
    if (r < 0) {
        log_errno(Level::warning, "check_name_owner_callback failed to parse message: ", r);
        return {OwnerAnswer::Kind::unreadable, r};
    }
    return {*owner != '\0' ? OwnerAnswer::Kind::owned : OwnerAnswer::Kind::not_owned, r};
}

int read_owner_change(sd_bus_message* signal, OwnerChange& change) {
    const int r =
        sd_bus_message_read(signal, "sss", &change.name, &change.old_owner, &change.new_owner);
    if (r < 0)
        log_errno(Level::warning, "NameOwnerChanged failed to parse message: ", r);
    return r;
}

int take_owner_change(sd_bus_message* message, OwnerChange& change) {
    if (sd_bus_message_is_method_error(message, nullptr) != 0) {
        log_error_message("Error when handling NameOwnerChanged: ", message);
        return -1;
    }
    return read_owner_change(message, change);
}

}  // namespace blocks
