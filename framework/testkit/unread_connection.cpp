#include "framework/testkit/unread_connection.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "framework/testkit/sdbus_result.hpp"

namespace Fenwa::testkit {

UnreadConnection::UnreadConnection() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) < 0)
        check(-errno);
    other_end_ = ends[1];
    check(sd_bus_new(bus_.out()));
    check(sd_bus_set_fd(bus(), ends[0], ends[0]));
    check(sd_bus_start(bus()));
}

UnreadConnection::~UnreadConnection() {
    close(other_end_);
}

void UnreadConnection::seal(sd_bus_message* message) {
    check(sd_bus_message_seal(message, ++cookie_, 0));
    check(sd_bus_message_rewind(message, 1));
}

}  // namespace Fenwa::testkit
