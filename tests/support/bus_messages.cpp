#include "tests/support/bus_messages.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace support {

void check(int r) {
    if (r < 0)
        throw std::system_error(-r, std::generic_category());
}

Messages::Messages() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) < 0)
        check(-errno);
    other_end_ = ends[1];
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus));
    bus_.reset(bus);
    check(sd_bus_set_fd(bus, ends[0], ends[0]));
    check(sd_bus_start(bus));

    question_ = call("/com/example/Peer", "com.example.Peer", "Ask", "");
}

Messages::~Messages() {
    close(other_end_);
}

Message Messages::error(const char* name, const char* text) {
    return seal(new_error(name, text));
}

Message Messages::new_call(const char* path, const char* interface, const char* member) {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_call(bus(), &message, "com.example.Peer", path, interface,
                                         member));
    return Message(message);
}

Message Messages::new_reply() {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_return(question_, &message));
    return Message(message);
}

Message Messages::new_error(const char* name, const char* text) {
    const sd_bus_error error = SD_BUS_ERROR_MAKE_CONST(name, text);
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_method_error(question_, &message, &error));
    return Message(message);
}

Message Messages::new_signal(const char* path, const char* interface, const char* member) {
    sd_bus_message* message = nullptr;
    check(sd_bus_message_new_signal(bus(), &message, path, interface, member));
    return Message(message);
}

Message Messages::seal(Message message) {
    check(sd_bus_message_seal(message, ++cookie_, 0));
    check(sd_bus_message_rewind(message, 1));
    return message;
}

}  // namespace support
