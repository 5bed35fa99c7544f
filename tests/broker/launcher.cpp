#include "tests/broker/launcher.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "common/bus/callback.hpp"
#include "tests/support/process.hpp"

namespace test {
namespace {

/// The message in a datagram of the journal: "MESSAGE=…" in a line, or a length and text of that
/// length.
std::string_view message_in(std::string_view datagram) {
    constexpr std::string_view line = "\nMESSAGE=";
    constexpr std::string_view block = "\nMESSAGE\n";
    if (const std::size_t at = datagram.find(line); at != std::string_view::npos) {
        const std::string_view rest = datagram.substr(at + line.size());
        return rest.substr(0, rest.find('\n'));
    }
    const std::size_t at = datagram.find(block);
    std::uint64_t length = 0;
    if (at == std::string_view::npos || datagram.size() < at + block.size() + sizeof length)
        return datagram;
    std::memcpy(&length, datagram.data() + at + block.size(), sizeof length);
    return datagram.substr(at + block.size() + sizeof length, static_cast<std::size_t>(length));
}

}  // namespace

BrokerLog::BrokerLog(sd_event& event, common::Descriptor socket) : socket_(std::move(socket)) {
    common::check(sd_event_add_io(&event, source_.out(), socket_.get(), EPOLLIN,
                                  common::callback<&BrokerLog::on_datagram>, this),
                  "log");
}

void BrokerLog::on_datagram() {
    print();
}

void BrokerLog::print() {
    std::array<char, 65536> datagram{};
    for (int count = 0; count < 1000; ++count) {
        const ssize_t got = recv(socket_.get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
        if (got <= 0)
            return;
        std::string_view message = message_in({datagram.data(), static_cast<std::size_t>(got)});
        while (message.ends_with('\n'))
            message.remove_suffix(1);
        std::fprintf(stderr, "dbus-broker: %.*s\n", static_cast<int>(message.size()),
                     message.data());
    }
}

pid_t start_launcher(const std::string& configuration_file, int listening,
                     const std::string& manager) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        common::fail(errno, "fork");
    if (child > 0)
        return child;
    // Killed, even where it stands still; then the kernel ends the broker.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(1);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    constexpr int first_passed = 3;  // where a program looks for the sockets that it is given
    if (listening == first_passed)
        fcntl(listening, F_SETFD, 0);
    else
        dup2(listening, first_passed);
    setenv("LISTEN_FDS", "1", 1);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", manager.c_str(), 1);
    become_program({"dbus-broker-launch", "--scope", "user", "--config-file", configuration_file});
}

}  // namespace test
