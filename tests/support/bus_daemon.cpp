#include "tests/support/bus_daemon.hpp"

#include "tests/support/proc.hpp"
#include "tests/support/process.hpp"

namespace test {

bool on_dbus_broker() {
    static const bool is_broker =
        run_program({"dbus-daemon", "--version"}).out.starts_with("dbus-broker");
    return is_broker;
}

pid_t serving_process(pid_t daemon) {
    if (!on_dbus_broker())
        return daemon;
    // What stands in for the daemon has started the launcher, which has started the broker.
    return children_of(children_of(daemon).at(0)).at(0);
}

std::string not_activatable(const std::string& bus_name) {
    return "org.freedesktop.DBus.Error.ServiceUnknown: " + not_activatable_text(bus_name);
}

std::string not_activatable_text(const std::string& bus_name) {
    return on_dbus_broker() ? "The name is not activatable"
                            : "The name " + bus_name + " was not provided by any .service files";
}

std::string no_owner_text(const std::string& bus_name) {
    return on_dbus_broker() ? "The name does not have an owner"
                            : "Could not get owner of name '" + bus_name + "': no such name";
}

std::string unowned_receiver_text(const std::string& bus_name) {
    return on_dbus_broker() ? "Destination does not exist"
                            : "Name \"" + bus_name + "\" does not exist";
}

std::string denied_text() {
    return on_dbus_broker() ? "Sender is not authorized to send message" : "Rejected send message";
}

std::string too_many_matches_text() {
    return on_dbus_broker() ? "Sending user's quota exceeded"
                            : "is not allowed to add more match rules";
}

std::string receiver_left_text() {
    return on_dbus_broker() ? "Remote peer disconnected"
                            : "Message recipient disconnected from message bus without replying";
}

std::string activation_failed_error() {
    return on_dbus_broker() ? "org.freedesktop.DBus.Error.NameHasNoOwner"
                            : "org.freedesktop.DBus.Error.Spawn.ChildExited";
}

}  // namespace test
