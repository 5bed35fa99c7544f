#include "camera/process/child.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <csignal>
#include <system_error>
#include <utility>

#include "common/process/exit_code.hpp"
#include "common/process/program.hpp"

namespace camera {
namespace {

constexpr const char* bus_variable = "DBUS_SYSTEM_BUS_ADDRESS=";

/// The environment with the bus in the place of the system bus.
std::vector<std::string> environment_with(const std::string& bus_address) {
    std::vector<std::string> variables = common::inherited_environment();
    std::erase_if(variables,
                  [](const std::string& each) { return each.starts_with(bus_variable); });
    variables.push_back(bus_variable + bus_address);
    return variables;
}

}  // namespace

Child::Child(Reaper& reaper, const std::vector<std::string>& command,
             const std::string& bus_address, std::function<void(int)> ended)
    : reaper_(reaper) {
    try {
        pid_ = common::start_program({command, environment_with(bus_address), SIGKILL});
    } catch (const std::system_error& error) {
        throw common::Failure(
            common::ExitCode::unreadable,
            fmt::format("cannot start '{}': {}", command.front(), error.code().message()));
    }
    reaper_.watch(pid_, [this, ended = std::move(ended)](int status) {
        pid_ = 0;
        ended(status);
    });
}

Child::~Child() {
    if (pid_ == 0)
        return;
    reaper_.forget(pid_);
    kill(-pid_, SIGKILL);
    common::wait_for(pid_);
}

void Children::start(const std::vector<std::string>& command, const std::string& bus_address) {
    children_.push_back(std::make_unique<Child>(
        reaper_, command, bus_address,
        [this, program = command.front()](int status) { ended_(program, status); }));
}

bool Children::running() const {
    return std::ranges::any_of(children_, [](const auto& child) { return child->running(); });
}

}  // namespace camera
