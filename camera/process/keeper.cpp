#include "camera/process/keeper.hpp"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "common/process/process_tree.hpp"

namespace camera {
namespace {

using common::Descriptor;

int check(int r, const char* what) {
    if (r < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return r;
}

/// Lets a blocked signal take effect.
void take(int number) {
    const sigset_t set = set_of({number});
    raise(number);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    sigprocmask(SIG_BLOCK, &set, nullptr);
}

}  // namespace

std::vector<int> ending_signals() {
    std::vector<int> signals = {SIGINT, SIGTERM};
    struct sigaction hangup {};
    if (sigaction(SIGHUP, nullptr, &hangup) == 0 && hangup.sa_handler != SIG_IGN)
        signals.push_back(SIGHUP);
    return signals;
}

sigset_t set_of(const std::vector<int>& signals) noexcept {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : signals)
        sigaddset(&set, number);
    return set;
}

void Keeper::Link::notify(const std::string& state) const noexcept {
    (void)!send(socket_.get(), state.data(), state.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

std::optional<Keeper::Link> Keeper::fork_camera() {
    std::array<int, 2> ends{};
    check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()),
          "cannot make a pair of sockets");
    Descriptor link(ends[0]);
    Descriptor cameras_link(ends[1]);
    // Blocked before the fork, so that no signal is lost while the camera gets ready.
    sigset_t all = set_of(ending_signals());
    for (const int number : {SIGCHLD, SIGQUIT, SIGTSTP})
        sigaddset(&all, number);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    const Descriptor signals(check(signalfd(-1, &all, SFD_CLOEXEC), "cannot serve signals"));
    common::adopt_orphans();
    const pid_t keeper = getpid();
    const pid_t camera = check(fork(), "cannot make a process");
    // In a group of its own, so that signals to the keeper's group reach it through the keeper
    // only.
    setpgid(camera, camera);
    if (camera == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != keeper)
            raise(SIGTERM);  // the keeper ended before the line above
        const sigset_t keepers = set_of({SIGQUIT, SIGTSTP});
        sigprocmask(SIG_UNBLOCK, &keepers, nullptr);
        // That group is in the background of the terminal that the camera writes to.
        std::signal(SIGTTOU, SIG_IGN);
        return Link(std::move(cameras_link));
    }
    cameras_link.close();
    // A kill by the camera's name must not hit both.
    prctl(PR_SET_NAME, "fenwa-keeper");
    keep(camera, signals.get(), link.get());
    return std::nullopt;
}

void Keeper::keep(pid_t camera, int signals, int link) {
    while (true) {
        std::array<pollfd, 2> ready{{{signals, POLLIN, 0}, {link, POLLIN, 0}}};
        poll(ready.data(), link < 0 ? 1 : 2, -1);
        if (ready[1].revents != 0) {
            std::array<char, 4096> state{};
            const ssize_t size = recv(link, state.data(), state.size() - 1, MSG_DONTWAIT);
            if (size > 0)
                sd_notify(0, state.data());
            else
                link = -1;  // the camera is about to end
        }
        signalfd_siginfo info{};
        if ((ready[0].revents & POLLIN) == 0 || read(signals, &info, sizeof info) != sizeof info)
            continue;
        if (info.ssi_signo != SIGCHLD)
            on_signal(camera, static_cast<int>(info.ssi_signo));
        else if (reap(camera))
            return;
    }
}

void Keeper::on_signal(pid_t camera, int number) {
    switch (number) {
        case SIGTSTP:
            kill(camera, SIGSTOP);
            take(SIGTSTP);
            kill(camera, SIGCONT);
            return;
        case SIGHUP:  // a terminal that closes sends it together with others: it counts for none
            kill(camera, number);
            return;
        case SIGINT:
        case SIGTERM:
            end_camera(camera, number);
            return;
        default:
            end_by(number);
    }
}

void Keeper::end_camera(pid_t camera, int number) {
    switch (std::exchange(state_, State::ending)) {
        case State::playing:
            kill(camera, number);
            return;
        case State::ending:
            end_by(number);
    }
}

bool Keeper::reap(pid_t camera) {
    int status = 0;
    pid_t ended = 0;
    do
        ended = waitpid(-1, &status, WNOHANG);
    while (ended > 0 && ended != camera);
    if (ended != camera)
        return false;
    if (WIFSIGNALED(status))
        end_by(WTERMSIG(status));
    common::kill_children();
    code_ = common::ExitCode{WEXITSTATUS(status)};
    return true;
}

void Keeper::end_by(int signal) {
    common::kill_children();
    tidy_up_();
    // A core of the keeper would replace that of the camera.
    const rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
    std::signal(signal, SIG_DFL);
    take(signal);
    _exit(128 + signal);
}

}  // namespace camera
