#include "common/bus/private_bus.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <system_error>
#include <utility>

#include "common/bus/private_bus_files.hpp"
#include "common/process/descriptor.hpp"
#include "common/process/exit_code.hpp"
#include "common/process/program.hpp"

namespace common {
namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr std::chrono::seconds start_timeout{10};
constexpr std::chrono::seconds kill_timeout{2};

[[noreturn]] void fail(const std::string& reason) {
    throw Failure(ExitCode::unavailable, "cannot start a private bus: " + reason);
}

std::string in_quotes(const fs::path& path) {
    return '\'' + path.string() + '\'';
}

void write_file(const fs::path& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    if (!file.flush())
        fail(in_quotes(path) + " cannot be written");
}

/// Whether a process accepts connections at a socket, or may do. The path must be short enough.
bool is_in_use(const fs::path& path) {
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    path.native().copy(name.sun_path, sizeof name.sun_path - 1);
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 ||
           (errno != ECONNREFUSED && errno != ENOENT);
}

/// Refuse a socket path in use: dbus-daemon would replace it.
void check_socket_path(const fs::path& path) {
    constexpr std::size_t longest = sizeof sockaddr_un{}.sun_path - 1;
    if (path.native().size() > longest)
        fail("the socket path " + in_quotes(path) + " is longer than " + std::to_string(longest) +
             " bytes");
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return;
    if (!S_ISSOCK(status.st_mode))
        fail(in_quotes(path) + " exists and is not a socket");
    if (is_in_use(path))
        fail("a process listens at " + in_quotes(path) + " already");
}

}  // namespace

PrivateBus::PrivateBus(const PrivateBusOptions& options) {
    if (!options.socket_path.empty()) {
        socket_ = fs::absolute(options.socket_path);
        check_socket_path(socket_);
    }
    remove_ownerless_folders();
    folder_ = std::make_unique<BusFolder>();
    try {
        if (options.socket_path.empty()) {
            socket_ = folder_->file("bus");
            check_socket_path(socket_);
        }
        write_files(options);
        start();
    } catch (...) {
        // No destructor runs for a half-built object.
        stop();
        throw;
    }
}

PrivateBus::~PrivateBus() {
    stop();
}

void PrivateBus::write_files(const PrivateBusOptions& options) {
    const fs::path services = folder_->file("services");
    std::error_code error;
    if (!fs::create_directory(services, error))
        fail(in_quotes(services) + " cannot be made: " + error.message());
    for (const Activatable& each : options.activatable)
        write_file(folder_->file(services / (each.bus_name + ".service")),
                   service_file(each.bus_name, options.camera_program, each.service));
    write_file(folder_->file("bus.conf"),
               bus_configuration("unix:path=" + address_escaped(socket_.string()),
                                 services.string(), options.extra_xml));
}

void PrivateBus::start() {
    std::array<int, 2> address_pipe{};
    if (pipe2(address_pipe.data(), O_CLOEXEC) != 0)
        fail(std::strerror(errno));
    const Descriptor address_out(address_pipe[0]);
    Descriptor address_in(address_pipe[1]);
    const Descriptor log(open(folder_->file("daemon.log").c_str(),
                              O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (log.get() < 0)
        fail(std::strerror(errno));
    try {
        pid_ = start_program(
            {.command = {"dbus-daemon", "--config-file=" + (folder_->path() / "bus.conf").string(),
                         "--print-address=" + std::to_string(address_in.get()), "--nofork",
                         "--nopidfile", "--nosyslog"},
             .environment = inherited_environment(),
             .death_signal = SIGTERM,
             .error_output = log.get(),
             .kept = address_in.get()});
    } catch (const std::system_error& error) {
        fail(error.code() == std::errc::no_such_file_or_directory
                 ? "dbus-daemon is not installed"
                 : "dbus-daemon: " + error.code().message());
    }
    address_in.close();
    address_ = read_address(address_out.get());
}

std::string PrivateBus::read_address(int pipe) {
    const Clock::time_point deadline = Clock::now() + start_timeout;
    std::string address;
    while (address.find('\n') == std::string::npos) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd ready{pipe, POLLIN, 0};
        const int polled = left.count() <= 0 ? 0 : poll(&ready, 1, static_cast<int>(left.count()));
        if (polled < 0 && errno == EINTR)
            continue;
        if (polled <= 0)
            fail("dbus-daemon has not reported its address within 10 s" + last_log_line());
        std::array<char, 256> chunk{};
        const ssize_t got = read(pipe, chunk.data(), chunk.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            fail("dbus-daemon has ended" + last_log_line());
        address.append(chunk.data(), static_cast<std::size_t>(got));
    }
    return address.substr(0, address.find('\n'));
}

std::string PrivateBus::last_log_line() const {
    std::ifstream file(folder_->path() / "daemon.log");
    std::string last;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty())
            last = line;
    }
    return last.empty() ? last : ": " + last;
}

void PrivateBus::stop() noexcept {
    if (pid_ <= 0)
        return;
    end_child(std::exchange(pid_, 0), kill_timeout);
    std::error_code ignored;
    fs::remove(socket_, ignored);
}

void remove_dead_socket(const fs::path& path) noexcept {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) && !is_in_use(path))
        unlink(path.c_str());
}

}  // namespace common
