#include "tests/support/bus_messages.hpp"

#include <system_error>

namespace support {

void check(int r) {
    if (r < 0)
        throw std::system_error(-r, std::generic_category());
}

Messages::Messages() {
    question_ = call("/com/example/Peer", "com.example.Peer", "Ask", "");
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
    connection_.seal(message);
    return message;
}

}  // namespace support
