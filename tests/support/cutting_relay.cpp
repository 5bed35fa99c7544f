#include "tests/support/cutting_relay.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace test {
namespace {

sockaddr_un socket_address(const std::filesystem::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path)
        throw std::runtime_error("too long for a socket: " + path.string());
    path.native().copy(address.sun_path, path.native().size());
    return address;
}

std::filesystem::path path_of(const std::string& address) {
    constexpr std::size_t begin = sizeof("unix:path=") - 1;
    return address.substr(begin, address.find(',') - begin);
}

/// A number of a message's header, in the machine's byte order, as sd-bus and the daemon write it.
std::size_t number_at(const std::string& text, std::size_t at) {
    std::uint32_t number = 0;
    std::memcpy(&number, text.data() + at, sizeof number);
    return number;
}

bool send_all(int socket, const char* text, std::size_t size) {
    while (size > 0) {
        const ssize_t n = send(socket, text, size, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        text += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

CuttingRelay::CuttingRelay(const std::string& address, std::filesystem::path socket, Cut cut,
                           std::chrono::milliseconds end_delay)
    : daemon_(path_of(address)),
      socket_(std::move(socket)),
      cut_(cut),
      end_delay_(end_delay),
      listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un name = socket_address(socket_);
    if (bind(listener_.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 ||
        listen(listener_.get(), 5) != 0)
        throw std::runtime_error("cannot listen at " + socket_.string());
    thread_ = std::thread([this] { serve(); });
}

CuttingRelay::~CuttingRelay() {
    is_over_ = true;
    thread_.join();
    unlink(socket_.c_str());
}

void CuttingRelay::serve() {
    while (!is_over_ && !has_cut_) {
        std::vector<pollfd> polled{{listener_.get(), POLLIN, 0}};
        for (const Flow& flow : flows_)
            polled.push_back({flow.end ? -1 : flow.from.get(), POLLIN, 0});
        poll(polled.data(), polled.size(), 20);
        for (std::size_t i = 0; i + 1 < polled.size() && !has_cut_; ++i) {
            if (polled[i + 1].revents != 0 && !pass(flows_[i]))
                flows_[i].end = std::chrono::steady_clock::now();
        }
        pass_ends();
        if (!has_cut_ && polled[0].revents != 0)
            accept_client();
    }
    listener_.close();
    flows_.clear();
}

void CuttingRelay::pass_ends() {
    const auto now = std::chrono::steady_clock::now();
    for (Flow& flow : flows_) {
        if (!flow.end || flow.is_end_passed || now < *flow.end + end_delay_)
            continue;
        // The end of one direction; the rest of the other one may still come.
        shutdown(flow.to, SHUT_WR);
        flow.is_end_passed = true;
    }
}

void CuttingRelay::accept_client() {
    common::Descriptor client(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    common::Descriptor daemon(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un name = socket_address(daemon_);
    if (connect(daemon.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0)
        return;
    const int to_client = client.get();
    const int to_daemon = daemon.get();
    flows_.push_back({std::move(client), to_daemon, {}});
    flows_.push_back({std::move(daemon), to_client, {}});
}

bool CuttingRelay::pass(Flow& flow) {
    char buffer[65536];
    const ssize_t n = read(flow.from.get(), buffer, sizeof buffer);
    if (n <= 0)
        return false;
    flow.text.append(buffer, static_cast<std::size_t>(n));
    while (const std::size_t size = unit_in(flow)) {
        const std::size_t number = ++units_;
        const bool is_last = number == cut_.unit;
        send_all(flow.to, flow.text.data(), is_last && cut_.is_inside ? size / 2 : size);
        flow.text.erase(0, size);
        if (is_last) {
            has_cut_ = true;
            break;
        }
    }
    return true;
}

/// The size of the first whole unit that is to be passed on, 0 for none.
std::size_t CuttingRelay::unit_in(Flow& flow) {
    if (!flow.in_messages) {
        const std::size_t end = flow.text.find("\r\n");
        if (end == std::string::npos)
            return 0;
        const std::string line = flow.text.substr(0, end);
        // The last line of the client, and of the daemon: it agrees to pass descriptors, or not.
        flow.in_messages = line == "BEGIN" || line == "AGREE_UNIX_FD" || line.starts_with("ERROR");
        return end + 2;
    }
    constexpr std::size_t header = 16;
    if (flow.text.size() < header)
        return 0;
    const std::size_t fields = (number_at(flow.text, 12) + 7) / 8 * 8;
    const std::size_t size = header + fields + number_at(flow.text, 4);
    return flow.text.size() < size ? 0 : size;
}

}  // namespace test
