#include "host/runtime/crash_report.hpp"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <string_view>

#include "common/process/exit_code.hpp"
#include "host/output/activity.hpp"
#include "host/output/standard_streams.hpp"
#include "host/output/urgent_message.hpp"

namespace host {
namespace {

struct Crash {
    int signal;
    std::string_view name;
    struct sigaction before;  ///< a sanitizer's, or the default
};

std::array<Crash, 5> crashes{{{SIGSEGV, "SIGSEGV", {}},
                              {SIGABRT, "SIGABRT", {}},
                              {SIGBUS, "SIGBUS", {}},
                              {SIGFPE, "SIGFPE", {}},
                              {SIGILL, "SIGILL", {}}}};

/// A line made without an allocation, which a signal handler must not do.
class Line {
  public:
    Line& operator<<(std::string_view text) {
        for (const char c : text.substr(0, max_length - std::min(max_length, size_))) {
            // No control characters, which change a terminal.
            text_[size_++] = c >= ' ' && c <= '~' ? c : '?';
        }
        return *this;
    }

    /// Appends "block 'NAME'", or `nobody` outside of activities.
    Line& who(std::string_view nobody) {
        const Activity* const activity = Activity::current();
        if (activity == nullptr)
            return *this << nobody;
        *this << activity->kind();
        return *activity->name() == '\0' ? *this : *this << " '" << activity->name() << "'";
    }
    /// Appends " in run", or nothing.
    Line& location() {
        const Activity* const activity = Activity::current();
        return activity == nullptr || activity->phase() == nullptr
                   ? *this
                   : *this << " in " << activity->phase();
    }

    [[nodiscard]] std::string_view text() const { return {text_.data(), size_}; }

  private:
    static constexpr std::size_t max_length = 1000;
    std::array<char, max_length> text_{};
    std::size_t size_ = 0;
};

/// The name of the block that the thread is in, empty for none.
std::string_view block_at_work() {
    const Activity* const activity = Activity::current();
    return activity != nullptr && std::string_view(activity->kind()) == "block" ? activity->name()
                                                                                : "";
}

/// Waits for the log lines before the crash, which may explain it.
void let_output_through() {
    const timespec moment{0, 1'000'000};
    for (int i = 0; i < 1000 && unwritten_output() != 0; ++i)
        nanosleep(&moment, nullptr);
}

void on_crash(int signal, siginfo_t* info, void* /*context*/) {
    const auto crash = std::find_if(crashes.begin(), crashes.end(),
                                    [signal](const Crash& each) { return each.signal == signal; });
    let_output_through();
    Line line;
    line.who("something outside of the blocks' operations") << " crashed";
    line.location() << " (" << crash->name << ")";
    print_urgently(common::Severity::error, line.text(), block_at_work());
    sigaction(signal, &crash->before, nullptr);
    // A fault comes again by itself when this returns.
    if (info->si_code <= 0)
        raise(signal);
}

std::terminate_handler terminate_otherwise = nullptr;

/// The C++ runtime writes about the exception past the writers, and in pieces: lines on their way
/// would come in between.
void on_terminate() {
    let_output_through();
    terminate_otherwise();
}

pid_t guarded = 0;
std::atomic<bool> guarding{false};
std::unique_ptr<const Activity> unloading;
/// Open as long as nobody closes descriptors that are not his; -1 if there was none left.
int open_descriptor = -1;

[[noreturn]] void end_process(int status) noexcept {
    for (;;)
        syscall(SYS_exit_group, status);
}

/// Not for a child process of a block.
bool is_guarded() noexcept {
    return guarding && getpid() == guarded;
}

[[noreturn]] void end_because_it(std::string_view did) {
    Line line;
    line.who("something outside of the blocks' operations") << " " << did;
    line.location();
    say_at_once(common::Severity::error, line.text(), block_at_work());
    drain_standard_streams();
    end_process(static_cast<int>(common::ExitCode::software));
}

/// Registered before a plug-in is loaded, and so called after their destructors.
void on_exit_called() {
    if (is_guarded())
        end_because_it("called exit");
    if (getpid() == guarded)
        unloading.reset();
}

[[noreturn]] void on_underscore_exit_called(std::string_view did, int status) {
    if (is_guarded() && in_foreign_code())
        end_because_it(did);
    if (unloading != nullptr && getpid() == guarded)
        drain_standard_streams();
    end_process(status);
}

}  // namespace

void report_crashes() noexcept {
    stack_t stack{};
    if (sigaltstack(nullptr, &stack) == 0 && (stack.ss_flags & SS_DISABLE) != 0) {
        static std::array<std::byte, 65536> room;
        stack = {room.data(), 0, room.size()};
        sigaltstack(&stack, nullptr);
    }
    for (Crash& crash : crashes) {
        struct sigaction action {};
        action.sa_sigaction = on_crash;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigaction(crash.signal, &action, &crash.before);
    }
    terminate_otherwise = std::set_terminate(on_terminate);
}

ExitGuard::ExitGuard() noexcept {
    guarded = getpid();
    open_descriptor = eventfd(0, EFD_CLOEXEC);
    guarding = true;
    std::atexit(on_exit_called);
}

ExitGuard::~ExitGuard() {
    guarding = false;
    close(open_descriptor);
    unloading = std::make_unique<const Activity>("a plug-in", "", "its unloading");
}

void end_without_descriptors() noexcept {
    if (is_guarded() && open_descriptor >= 0 && fcntl(open_descriptor, F_GETFD) < 0)
        end_because_it("closed the descriptors of the host");
}

}  // namespace host

// Exported, so that plug-ins call these.
extern "C" {

void _exit(int status) {
    host::on_underscore_exit_called("called _exit", status);
}

void _Exit(int status) noexcept {
    host::on_underscore_exit_called("called _Exit", status);
}

}  // extern "C"
