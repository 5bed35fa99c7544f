#include "tests/broker/service_manager.hpp"

#include <sys/socket.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "common/bus/callback.hpp"
#include "common/process/program.hpp"

namespace test {
namespace {

using common::check;

constexpr const char* manager_path = "/org/freedesktop/systemd1";
constexpr const char* manager_interface = "org.freedesktop.systemd1.Manager";

std::string path_of(const std::string& unit) {
    char* path = nullptr;
    check(sd_bus_path_encode("/org/freedesktop/systemd1/unit", unit.c_str(), &path), "path");
    const std::unique_ptr<char, decltype(&std::free)> owned(path, &std::free);
    return path;
}

/// The words of the ExecStart among the properties that come next in a message.
std::vector<std::string> read_command(sd_bus_message& call) {
    std::vector<std::string> command;
    check(sd_bus_message_enter_container(&call, 'a', "(sv)"), "properties");
    while (check(sd_bus_message_enter_container(&call, 'r', "sv"), "property") > 0) {
        if (common::read_string(call) == "ExecStart") {
            check(sd_bus_message_enter_container(&call, 'v', "a(sasb)"), "ExecStart");
            check(sd_bus_message_enter_container(&call, 'a', "(sasb)"), "ExecStart");
            check(sd_bus_message_enter_container(&call, 'r', "sasb"), "ExecStart");
            const std::string program = common::read_string(call);
            command = common::read_strings(call);
            command.at(0) = program;
            check(sd_bus_message_skip(&call, "b"), "ExecStart");
            for (int level = 0; level < 3; ++level)
                check(sd_bus_message_exit_container(&call), "ExecStart");
        } else {
            check(sd_bus_message_skip(&call, "v"), "property");
        }
        check(sd_bus_message_exit_container(&call), "property");
    }
    check(sd_bus_message_exit_container(&call), "properties");
    return command;
}

}  // namespace

struct ServiceManager::Handler {
    static constexpr sd_bus_vtable daemon[] = {
        SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("Hello", "", "s", common::callback<&ServiceManager::on_hello>, 0),
        SD_BUS_METHOD("AddMatch", "s", "", common::callback<&ServiceManager::on_request>, 0),
        SD_BUS_METHOD("RemoveMatch", "s", "", common::callback<&ServiceManager::on_request>, 0),
        SD_BUS_VTABLE_END};
    static constexpr sd_bus_vtable manager[] = {
        SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_METHOD("Subscribe", "", "", common::callback<&ServiceManager::on_request>, 0),
        SD_BUS_METHOD("LoadUnit", "s", "o", common::callback<&ServiceManager::on_load_unit>, 0),
        SD_BUS_METHOD("StartTransientUnit", "ssa(sv)a(sa(sv))", "o",
                      common::callback<&ServiceManager::on_start_unit>, 0),
        SD_BUS_VTABLE_END};
};

ServiceManager::ServiceManager(sd_event& event, common::Descriptor socket, std::string bus_address,
                               std::function<void()> ready)
    : socket_(std::move(socket)), bus_address_(std::move(bus_address)), ready_(std::move(ready)) {
    check(sd_event_add_io(&event, connection_source_.out(), socket_.get(), EPOLLIN,
                          common::callback<&ServiceManager::on_connection>, this),
          "the launcher's connection");
}

void ServiceManager::on_connection(sd_event_source& source, int socket) {
    const int connection = accept4(socket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (connection < 0)
        common::fail(errno, "accept4");
    sd_id128_t id;
    check(sd_id128_randomize(&id), "id");
    check(sd_bus_new(launcher_.out()), "bus");
    sd_bus* const bus = launcher_.get();
    check(sd_bus_set_fd(bus, connection, connection), "fd");
    check(sd_bus_set_server(bus, 1, id), "server");
    check(sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                   Handler::daemon, this),
          "Hello");
    check(sd_bus_add_object_vtable(bus, nullptr, manager_path, manager_interface, Handler::manager,
                                   this),
          "manager");
    check(sd_bus_start(bus), "start");
    check(sd_bus_attach_event(bus, sd_event_source_get_event(&source), SD_EVENT_PRIORITY_NORMAL),
          "event loop");
    ready_();
}

int ServiceManager::on_hello(sd_bus_message& call) {
    return sd_bus_reply_method_return(&call, "s", ":1.1");
}

int ServiceManager::on_request(sd_bus_message& call) {
    return sd_bus_reply_method_return(&call, nullptr);
}

int ServiceManager::on_load_unit(sd_bus_message& call) {
    return sd_bus_reply_method_return(&call, "o", path_of(common::read_string(call)).c_str());
}

int ServiceManager::on_start_unit(sd_bus_message& call) {
    const std::string unit = common::read_string(call);
    check(sd_bus_message_skip(&call, "s"), "mode");
    start(call, unit);
    return 1;
}

void ServiceManager::start(sd_bus_message& call, const std::string& unit) {
    std::vector<std::string> environment = common::inherited_environment();
    std::erase_if(environment, [](const std::string& each) { return each.starts_with("DBUS_"); });
    environment.push_back("DBUS_SESSION_BUS_ADDRESS=" + bus_address_);
    const std::string job = std::string(manager_path) + "/job/" + std::to_string(++jobs_);
    check(sd_bus_reply_method_return(&call, "o", job.c_str()), "job");
    std::string result = "done";
    try {
        const pid_t child = common::start_program(
            {.command = read_command(call), .environment = environment, .death_signal = SIGKILL});
        units_[child] = unit;
    } catch (const std::system_error&) {
        result = "failed";
    }
    common::MessagePtr removed;
    check(sd_bus_message_new_signal(launcher_.get(), removed.out(), manager_path, manager_interface,
                                    "JobRemoved"),
          "JobRemoved");
    check(sd_bus_message_append(removed.get(), "uoss", jobs_, job.c_str(), unit.c_str(),
                                result.c_str()),
          "JobRemoved");
    send(removed);
}

void ServiceManager::report_end(pid_t child, int status) {
    const auto found = units_.find(child);
    if (found == units_.end())
        return;
    const std::string unit = found->second;
    units_.erase(found);
    common::MessagePtr changed;
    check(sd_bus_message_new_signal(launcher_.get(), changed.out(), path_of(unit).c_str(),
                                    "org.freedesktop.DBus.Properties", "PropertiesChanged"),
          "PropertiesChanged");
    check(sd_bus_message_append(changed.get(), "sa{sv}as", "org.freedesktop.systemd1.Unit", 1,
                                "ActiveState", "s", status == 0 ? "inactive" : "failed", 0),
          "PropertiesChanged");
    send(changed);
}

void ServiceManager::send(const common::MessagePtr& signal) {
    check(sd_bus_message_set_sender(signal.get(), "org.freedesktop.systemd1"), "sender");
    check(sd_bus_send(launcher_.get(), signal.get(), nullptr), "signal");
}

}  // namespace test
