// Takes the place of dbus-daemon for private buses, and runs dbus-broker: same options, same
// address on a descriptor, same end. script/with-dbus-broker puts it there.
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "common/bus/callback.hpp"
#include "common/process/program.hpp"
#include "tests/broker/bus_socket.hpp"
#include "tests/broker/launcher.hpp"
#include "tests/broker/service_manager.hpp"

namespace test {
namespace {

using common::check;

/// dbus-broker as a program that acts like dbus-daemon.
class Daemon {
  public:
    Daemon(const std::string& configuration_file, int address_to);
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    /// Serves until SIGTERM or SIGINT comes or the broker ends. @returns the exit code.
    int run();

  private:
    void on_child();
    void end();

    common::EventPtr event_;
    std::optional<BrokerLog> log_;
    std::optional<ServiceManager> manager_;
    pid_t launcher_ = 0;
};

/// The launcher connects to the journal by its path: /run becomes this process's own, and nobody
/// else's.
common::Descriptor journal_socket() {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0)
        common::fail(errno, "a /run of its own");
    std::filesystem::create_directories("/run/systemd/journal");
    return bound_socket(SOCK_DGRAM, "/run/systemd/journal/socket");
}

common::Descriptor listening_socket(const std::string& path) {
    common::Descriptor made = bound_socket(SOCK_STREAM, path);
    if (listen(made.get(), SOMAXCONN) != 0)
        common::fail(errno, path.c_str());
    return made;
}

/// An event loop that serves these signals, which are blocked.
common::EventPtr new_loop(std::initializer_list<int> signals) {
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : signals)
        sigaddset(&blocked, signal);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    common::EventPtr event;
    check(sd_event_new(event.out()), "event loop");
    return event;
}

Daemon::Daemon(const std::string& configuration_file, int address_to)
    : event_(new_loop({SIGCHLD, SIGINT, SIGTERM})) {
    const std::string address = listen_address(configuration_file);
    const std::string path = socket_path(address);
    log_.emplace(*event_, journal_socket());
    std::filesystem::remove(path);  // as dbus-daemon does with a socket that nobody serves any more
    const common::Descriptor bus = listening_socket(path);
    const std::string manager_socket = "/run/manager";
    manager_.emplace(*event_, listening_socket(manager_socket), address, [address, address_to] {
        // Without its GUID: the bus tells it to clients only, which it counts.
        dprintf(address_to, "%s\n", address.c_str());
        close(address_to);
    });
    for (const int signal : {SIGINT, SIGTERM})
        check(sd_event_add_signal(event_.get(), nullptr, signal, nullptr, nullptr), "signal");
    check(sd_event_add_signal(event_.get(), nullptr, SIGCHLD, common::callback<&Daemon::on_child>,
                              this),
          "children");
    // What the launcher leaves, the broker, becomes a child of this process.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    launcher_ = start_launcher(configuration_file, bus.get(), "unix:path=" + manager_socket);
}

int Daemon::run() {
    const int code = sd_event_loop(event_.get());
    end();
    log_->print();
    return code;
}

void Daemon::on_child() {
    int status = 0;
    for (pid_t child = 0; (child = waitpid(-1, &status, WNOHANG)) > 0;) {
        if (child == launcher_) {
            launcher_ = 0;
            check(sd_event_exit(event_.get(), status == 0 ? 1 : common::exit_code_of(status)),
                  "exit");
        }
        manager_->report_end(child, status);
    }
}

/// Nothing is left when this process has ended.
void Daemon::end() {
    using Clock = std::chrono::steady_clock;
    if (launcher_ > 0)
        common::end_child(launcher_, std::chrono::seconds(1));
    kill(0, SIGCONT);  // a broker that a test has stopped would not see its end
    const auto deadline = Clock::now() + std::chrono::milliseconds(500);
    while (waitpid(-1, nullptr, WNOHANG) >= 0 && Clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

int run(int count, char** words) {
    CLI::App app("dbus-broker in place of dbus-daemon");
    app.set_version_flag("--version", "dbus-broker");
    std::string configuration_file;
    int address_to = STDOUT_FILENO;
    app.add_option("--config-file", configuration_file)->required();
    app.add_option("--print-address", address_to);
    for (const char* flag : {"--nofork", "--nopidfile", "--nosyslog"})
        app.add_flag(flag);
    CLI11_PARSE(app, count, words);
    return Daemon(configuration_file, address_to).run();
}

}  // namespace
}  // namespace test

int main(int count, char** words) {
    try {
        return test::run(count, words);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "dbus-daemon: %s\n", error.what());
        return 1;
    }
}
