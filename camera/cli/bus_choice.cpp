#include "camera/cli/bus_choice.hpp"

#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "common/text/percent_decoding.hpp"

namespace camera {
namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 2> system_sockets = {"/run/dbus/system_bus_socket",
                                                       "/var/run/dbus/system_bus_socket"};

/// The path of one address of a list, such as "unix:path=/run/x,guid=…"; empty where it has none.
std::string socket_path(std::string_view address) {
    constexpr std::string_view transport = "unix:";
    if (!address.starts_with(transport))
        return {};
    address.remove_prefix(transport.size());
    while (!address.empty()) {
        const std::string_view pair = address.substr(0, address.find(','));
        if (pair.starts_with("path="))
            return common::percent_decoded(pair.substr(5));
        address.remove_prefix(std::min(address.size(), pair.size() + 1));
    }
    return {};
}

bool is_system_socket(const std::string& path) {
    std::error_code error;
    for (const char* socket : system_sockets) {
        // By text too: the socket may not be there yet.
        if (fs::path(path).lexically_normal() == socket || fs::equivalent(path, socket, error))
            return true;
    }
    return false;
}

}  // namespace

bool is_machines_system_bus(const std::string& address, const char* environment) {
    if (address == "system") {
        const bool led_elsewhere = environment != nullptr && *environment != '\0';
        return !led_elsewhere || is_machines_system_bus(environment, nullptr);
    }
    for (std::string_view rest = address; !rest.empty();) {
        const std::string_view one = rest.substr(0, rest.find(';'));
        if (is_system_socket(socket_path(one)))
            return true;
        rest.remove_prefix(std::min(rest.size(), one.size() + 1));
    }
    return false;
}

}  // namespace camera
