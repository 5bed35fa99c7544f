#include "camera/guest.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <memory>

#include "camera/trampoline.hpp"
#include "common/exit_code.hpp"

namespace camera {
namespace {

constexpr std::chrono::seconds patience{10};
constexpr const char* bus_variable = "DBUS_SYSTEM_BUS_ADDRESS=";

/// The environment with the bus in the place of the system bus.
std::vector<std::string> environment_with(const std::string& bus_address) {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (std::strncmp(*variable, bus_variable, std::strlen(bus_variable)) != 0)
            variables.emplace_back(*variable);
    }
    variables.push_back(bus_variable + bus_address);
    return variables;
}

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// What posix_spawn wants to know, freed at the end.
struct SpawnSettings {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t files;

    SpawnSettings() {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&files);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&files);
        posix_spawnattr_destroy(&attributes);
    }
};

int spawn(pid_t& pid, std::vector<std::string> command, const std::string& bus_address) {
    SpawnSettings settings;
    sigset_t none;
    sigemptyset(&none);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setflags(&settings.attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                                       POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&settings.attributes, 0);
    posix_spawnattr_setsigmask(&settings.attributes, &none);
    posix_spawnattr_setsigdefault(&settings.attributes, &all);
    posix_spawn_file_actions_addopen(&settings.files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    std::vector<std::string> environment = environment_with(bus_address);
    const std::vector<char*> arguments = pointers_to(command);
    const std::vector<char*> variables = pointers_to(environment);
    return posix_spawnp(&pid, arguments[0], &settings.files, &settings.attributes, arguments.data(),
                        variables.data());
}

}  // namespace

Guest::Guest(sd_event& event, const std::vector<std::string>& command,
             const std::string& bus_address, std::function<void(int)> ended)
    : ended_(std::move(ended)), timers_(event) {
    const int error = spawn(pid_, command, bus_address);
    if (error != 0) {
        pid_ = 0;
        throw tool::Failure(tool::ExitCode::unreadable,
                            "cannot start '" + command.front() + "': " + std::strerror(error));
    }
    sd_event_source* source = nullptr;
    tool::check(sd_event_add_child(&event, &source, pid_, WEXITED, on_ended, this),
                "sd_event_add_child");
    source_.reset(source);
}

Guest::~Guest() {
    source_.reset();
    if (pid_ != 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

void Guest::ask_to_end() {
    if (pid_ == 0)
        return;
    kill(pid_, SIGTERM);
    timers_.once(patience, [this] {
        if (pid_ != 0)
            kill(pid_, SIGKILL);
    });
}

int Guest::on_ended(sd_event_source* source, const siginfo_t* info, void* userdata) noexcept {
    auto& guest = *static_cast<Guest*>(userdata);
    guest.pid_ = 0;  // sd-event reaps it behind this callback
    try {
        guest.ended_(info->si_code == CLD_EXITED ? info->si_status : 128 + info->si_status);
    } catch (...) {
        end_loop_after_exception(source);
    }
    return 0;
}

}  // namespace camera
