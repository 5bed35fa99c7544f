#include "common/bus/bus.hpp"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <thread>

#include "common/process/exit_code.hpp"

namespace common {
namespace {

using Clock = std::chrono::steady_clock;

std::string environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// The address that "system" or "session" stands for, as sd-bus finds it; empty for any other, and
/// if the environment names no session bus.
std::string meaning_of(const std::string& address) {
    if (address == "system") {
        const std::string given = environment("DBUS_SYSTEM_BUS_ADDRESS");
        return given.empty() ? "unix:path=/run/dbus/system_bus_socket" : given;
    }
    if (address != "session")
        return {};
    const std::string given = environment("DBUS_SESSION_BUS_ADDRESS");
    const std::string folder = environment("XDG_RUNTIME_DIR");
    return given.empty() && !folder.empty() ? "unix:path=" + folder + "/bus" : given;
}

[[noreturn]] void unreachable(const std::string& address, const std::string& reason) {
    const std::string meaning = meaning_of(address);
    throw Failure(ExitCode::unavailable,
                  fmt::format("cannot reach the bus at '{}'{}: {}", address,
                              meaning.empty() ? "" : " (" + meaning + ")", reason));
}

[[noreturn]] void unreachable(const std::string& address, int error) {
    std::string reason = std::strerror(error);
    if (error == ENOMEDIUM)
        reason = "neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR is set";
    // sd-bus skips what it does not know, and then has nowhere to go.
    const bool is_address =
        address == "system" || address == "session" || address.find(':') != std::string::npos;
    if (error == EINVAL || !is_address)
        reason += "; an address looks like unix:path=/run/dbus/system_bus_socket";
    else if (error == ENOENT || error == ECONNREFUSED || error == ENOMEDIUM)
        reason +=
            "; name another bus with --bus, or give a program its own: "
            "fenwa-camera run --private-bus -- PROGRAM";
    unreachable(address, reason);
}

BusPtr new_connection(const std::string& address) {
    sd_bus* bus = nullptr;
    int r = 0;
    // These two start the connection themselves; an address needs the steps one by one.
    if (address == "system") {
        r = sd_bus_open_system(&bus);
    } else if (address == "session") {
        r = sd_bus_open_user(&bus);
    } else {
        check(sd_bus_new(&bus), "sd_bus_new");
        BusPtr guard(bus);
        r = sd_bus_set_address(bus, address.c_str());
        if (r >= 0)
            r = sd_bus_set_bus_client(bus, 1);
        if (r >= 0)
            r = sd_bus_start(bus);
        if (r >= 0)
            return guard;
        bus = nullptr;
    }
    if (r < 0)
        unreachable(address, -r);
    return BusPtr(bus);
}

/// Drops the input of a socket until its other end is closed. @returns false at the deadline.
bool drop_input(int socket, Clock::time_point deadline) {
    std::array<char, 65536> dropped;
    for (;;) {
        const ssize_t n = recv(socket, dropped.data(), dropped.size(), MSG_DONTWAIT);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR))
            return n == 0;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return false;
        pollfd ready{socket, POLLIN, 0};
        if (n < 0)
            poll(&ready, 1, static_cast<int>(left.count()));
    }
}

}  // namespace

std::string text_of(const sd_bus_error& error) {
    std::string text = error.name;
    if (error.message != nullptr)
        text.append(": ").append(error.message);
    return text;
}

std::string BusError::text(int r) const {
    return sd_bus_error_is_set(&error) > 0 ? text_of(error) : std::strerror(-r);
}

BusPtr open_bus(const std::string& address, std::chrono::microseconds limit) {
    BusPtr bus = new_connection(address);
    const auto give_up = [&](const auto& reason) {
        // At once: the handle would wait for the daemon to read the rest of the output.
        sd_bus_close(bus.get());
        unreachable(address, reason);
    };
    const Clock::time_point deadline = Clock::now() + limit;
    // A daemon that accepts the connection and then stays silent would hold sd-bus for minutes.
    for (int ready = 0; (ready = sd_bus_is_ready(bus.get())) <= 0;) {
        if (ready < 0)
            give_up(-ready);
        const int r = sd_bus_process(bus.get(), nullptr);
        if (r < 0)
            give_up(-r);
        if (r > 0)
            continue;
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            give_up("no answer within " +
                    std::to_string(std::chrono::duration<double>(limit).count()) + " s");
        const int w = sd_bus_wait(bus.get(), static_cast<std::uint64_t>(left.count()));
        if (w < 0 && w != -EINTR)
            give_up(-w);
    }
    return bus;
}

bool is_ownable_name(const std::string& name) {
    return sd_bus_service_name_is_valid(name.c_str()) > 0 && !name.starts_with(':');
}

void own_name(sd_bus& bus, const std::string& name) {
    const int r = sd_bus_request_name(&bus, name.c_str(), 0);
    if (r >= 0)
        return;
    throw Failure(ExitCode::unavailable,
                  fmt::format("cannot own the bus name '{}': {}", name,
                              r == -EEXIST ? "another connection owns it" : std::strerror(-r)));
}

bool finish_sending(sd_bus& bus, Clock::time_point deadline) {
    const int socket = sd_bus_get_fd(&bus);
    if (socket < 0 || sd_bus_is_open(&bus) <= 0)
        return false;
    std::uint64_t queued = 0;
    if (sd_bus_get_n_queued_write(&bus, &queued) >= 0 && queued == 0) {
        shutdown(socket, SHUT_WR);
        return drop_input(socket, deadline);
    }
    bool closed_by_daemon = false;
    // A close with unread input makes the daemon drop our output. sd-bus would call handlers if it
    // read, and its flush has no time limit: the shutdown ends it.
    std::thread reader([&] {
        closed_by_daemon = drop_input(socket, deadline);
        if (!closed_by_daemon)
            shutdown(socket, SHUT_RDWR);
    });
    const int flushed = sd_bus_flush(&bus);
    shutdown(socket, SHUT_WR);
    reader.join();
    return flushed >= 0 && closed_by_daemon;
}

void fail(int error, const char* what) {
    throw std::system_error(error, std::generic_category(), what);
}

std::string read_string(sd_bus_message& message) {
    const char* text = nullptr;
    check(sd_bus_message_read(&message, "s", &text), "sd_bus_message_read");
    return text;
}

std::vector<std::string> read_strings(sd_bus_message& message) {
    std::vector<std::string> texts;
    check(sd_bus_message_enter_container(&message, SD_BUS_TYPE_ARRAY, "s"), "cannot read strings");
    const char* text = nullptr;
    while (check(sd_bus_message_read_basic(&message, 's', &text), "cannot read strings") > 0)
        texts.emplace_back(text);
    check(sd_bus_message_exit_container(&message), "cannot read strings");
    return texts;
}

int append_strings(sd_bus_message& message, const std::vector<std::string>& texts) {
    int r = sd_bus_message_open_container(&message, SD_BUS_TYPE_ARRAY, "s");
    for (const std::string& text : texts) {
        if (r >= 0)
            r = sd_bus_message_append_basic(&message, 's', text.c_str());
    }
    return r < 0 ? r : sd_bus_message_close_container(&message);
}

std::string variant_type(sd_bus_message& message) {
    char type = 0;
    const char* contents = nullptr;
    check(sd_bus_message_peek_type(&message, &type, &contents), "cannot read a variant");
    return type == SD_BUS_TYPE_VARIANT ? contents : "";
}

MessagePtr new_reply(sd_bus_message& call) {
    MessagePtr reply;
    check(sd_bus_message_new_method_return(&call, reply.out()), "sd_bus_message_new_method_return");
    return reply;
}

}  // namespace common
