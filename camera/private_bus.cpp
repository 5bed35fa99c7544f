#include "camera/private_bus.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include "camera/private_bus_files.hpp"
#include "common/descriptor.hpp"
#include "common/exit_code.hpp"

namespace camera {
namespace {

using tool::Descriptor;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr std::chrono::seconds start_limit{10};
constexpr std::chrono::seconds stop_limit{2};

[[noreturn]] void fail(const std::string& reason) {
    throw tool::Failure(tool::ExitCode::unavailable, "cannot start a private bus: " + reason);
}

fs::path make_folder() {
    const char* base = std::getenv("TMPDIR");
    const std::string pattern =
        (fs::path(base == nullptr || *base == '\0' ? "/tmp" : base) / "fenwa-bus-XXXXXX").string();
    std::string name = pattern;  // mkdtemp writes into it even where it fails
    if (mkdtemp(name.data()) == nullptr)
        fail("no folder like '" + pattern + "' can be made: " + std::strerror(errno));
    return fs::absolute(name);
}

void write_file(const fs::path& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    if (!file.flush())
        fail("'" + path.string() + "' cannot be written");
}

/// A path that is taken is no place to listen at: the daemon would push its owner aside.
void check_socket_path(const fs::path& path) {
    sockaddr_un name{};
    if (path.native().size() >= sizeof name.sun_path)
        fail("the socket path '" + path.string() + "' is longer than " +
             std::to_string(sizeof name.sun_path - 1) + " bytes");
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return;
    if (!S_ISSOCK(status.st_mode))
        fail("'" + path.string() + "' is there and is not a socket");
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    name.sun_family = AF_UNIX;
    std::memcpy(name.sun_path, path.c_str(), path.native().size());
    if (connect(probe.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0)
        fail("somebody listens at '" + path.string() + "' already");
}

/// The child's part between fork and exec: only calls that are safe there.
[[noreturn]] void become_daemon(const std::string& configuration, int address_pipe, int error_pipe,
                                int log, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(1);  // it ended before the line above
    setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    signal(SIGINT, SIG_DFL);
    dup2(log, STDERR_FILENO);
    // The descriptor that the daemon writes its address to is the only one it inherits besides.
    fcntl(address_pipe, F_SETFD, 0);
    std::array<char, 32> print_address{};
    char* end = print_address.data();
    for (const char c : std::string_view("--print-address="))
        *end++ = c;
    std::array<char, 12> digits{};
    std::size_t count = 0;
    for (int rest = address_pipe; rest > 0 || count == 0; rest /= 10)
        digits[count++] = static_cast<char>('0' + rest % 10);
    while (count > 0)
        *end++ = digits[--count];
    execlp("dbus-daemon", "dbus-daemon", configuration.c_str(), print_address.data(), "--nofork",
           "--nopidfile", "--nosyslog", static_cast<char*>(nullptr));
    const int error = errno;
    (void)!write(error_pipe, &error, sizeof error);
    _exit(127);
}

}  // namespace

PrivateBus::PrivateBus(const PrivateBusOptions& options) {
    if (!options.socket_path.empty()) {
        socket_ = fs::absolute(options.socket_path);
        check_socket_path(socket_);
    }
    folder_ = make_folder();
    try {
        if (options.socket_path.empty()) {
            socket_ = folder_ / "bus";
            check_socket_path(socket_);
        }
        write_files(options);
        start();
    } catch (...) {
        // No destructor runs for a half-built object.
        stop();
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
        throw;
    }
}

PrivateBus::~PrivateBus() {
    stop();
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

void PrivateBus::write_files(const PrivateBusOptions& options) {
    const fs::path services = folder_ / "services";
    std::error_code error;
    if (!fs::create_directory(services, error))
        fail("'" + services.string() + "' cannot be made: " + error.message());
    for (const Activatable& each : options.activatable)
        write_file(services / (each.bus_name + ".service"),
                   service_file(each.bus_name, options.camera_program, each.service));
    write_file(folder_ / "bus.conf",
               bus_configuration("unix:path=" + address_escaped(socket_.string()),
                                 services.string(), options.extra_xml));
}

void PrivateBus::start() {
    std::array<int, 2> address_pipe{};
    std::array<int, 2> error_pipe{};
    if (pipe2(address_pipe.data(), O_CLOEXEC) != 0)
        fail(std::strerror(errno));
    const Descriptor address_out(address_pipe[0]);
    Descriptor address_in(address_pipe[1]);
    if (pipe2(error_pipe.data(), O_CLOEXEC) != 0)
        fail(std::strerror(errno));
    const Descriptor error_out(error_pipe[0]);
    Descriptor error_in(error_pipe[1]);
    const Descriptor log(open((folder_ / "daemon.log").c_str(),
                              O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (log.get() < 0)
        fail(std::strerror(errno));

    const std::string configuration = "--config-file=" + (folder_ / "bus.conf").string();
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0)
        become_daemon(configuration, address_in.get(), error_in.get(), log.get(), parent);
    if (pid_ < 0) {
        pid_ = 0;
        fail(std::strerror(errno));
    }
    address_in.close();
    error_in.close();
    int error = 0;
    ssize_t got = 0;
    do
        got = read(error_out.get(), &error, sizeof error);  // ends when the child has exec'd
    while (got < 0 && errno == EINTR);
    if (got == sizeof error)
        fail(error == ENOENT ? "dbus-daemon is not installed"
                             : std::string("dbus-daemon: ") + std::strerror(error));
    address_ = read_address(address_out.get());
}

std::string PrivateBus::read_address(int pipe) {
    const Clock::time_point deadline = Clock::now() + start_limit;
    std::string address;
    while (address.find('\n') == std::string::npos) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd ready{pipe, POLLIN, 0};
        const int polled = left.count() <= 0 ? 0 : poll(&ready, 1, static_cast<int>(left.count()));
        if (polled < 0 && errno == EINTR)
            continue;
        if (polled <= 0)
            fail("dbus-daemon has not said its address within 10 s" + complaint());
        std::array<char, 256> chunk{};
        const ssize_t got = read(pipe, chunk.data(), chunk.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            fail("dbus-daemon has ended" + complaint());
        address.append(chunk.data(), static_cast<std::size_t>(got));
    }
    return address.substr(0, address.find('\n'));
}

std::string PrivateBus::complaint() const {
    std::ifstream file(folder_ / "daemon.log");
    std::string last;
    for (std::string line; std::getline(file, line);)
        last = line;
    return last.empty() ? last : ": " + last;
}

void PrivateBus::stop() noexcept {
    if (pid_ <= 0)
        return;
    kill(pid_, SIGTERM);
    const Clock::time_point deadline = Clock::now() + stop_limit;
    while (waitpid(pid_, nullptr, WNOHANG) == 0) {
        if (Clock::now() >= deadline) {
            kill(pid_, SIGKILL);
            while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
            }
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    pid_ = 0;
    std::error_code ignored;
    std::filesystem::remove(socket_, ignored);
}

}  // namespace camera
