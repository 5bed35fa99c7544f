#include "camera/process/child.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include "common/process/exit_code.hpp"
#include "common/process/program.hpp"
#include "common/text/line_text.hpp"

namespace camera {
namespace {

/// The inherited environment with some variables replaced.
std::vector<std::string> environment_with(const std::vector<std::string>& replaced) {
    std::vector<std::string> variables = common::inherited_environment();
    for (const std::string& variable : replaced) {
        const std::string name = variable.substr(0, variable.find('=') + 1);
        std::erase_if(variables, [&](const std::string& each) { return each.starts_with(name); });
        variables.push_back(variable);
    }
    return variables;
}

/// The names of programs in front of their lines, as wide as the longest. Programs of one name are
/// numbered.
std::vector<std::string> line_names(const std::vector<std::vector<std::string>>& commands) {
    std::vector<std::string> names;
    std::map<std::string, int> count;
    for (const std::vector<std::string>& command : commands) {
        names.push_back(line_name(command.front()));
        ++count[names.back()];
    }
    std::map<std::string, int> number;
    std::size_t width = 0;
    for (std::string& name : names) {
        if (count[name] > 1)
            name += fmt::format("-{}", ++number[name]);
        width = std::max(width, name.size());
    }
    for (std::string& name : names)
        name.resize(width, ' ');
    return names;
}

}  // namespace

std::string line_name(const std::string& program) {
    return common::one_line(std::filesystem::path(program).filename().string());
}

Child::Child(const ProgramPlace& place, const std::vector<std::string>& command,
             const std::string& name, std::function<void(int)> ended)
    : reaper_(place.reaper) {
    try {
        common::ProgramStart start{command, environment_with(place.variables), SIGKILL};
        std::optional<ProgramLines::Pipes> pipes;
        if (place.lines != nullptr) {
            pipes = place.lines->connect(name);
            start.output = pipes->out.get();
            start.error_output = pipes->error_output.get();
        }
        pid_ = common::start_program(start);
    } catch (const std::system_error& error) {
        throw common::Failure(
            common::exit_code_of_unreadable(error.code().value()),
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

void Children::start(const std::vector<std::vector<std::string>>& commands) {
    const std::vector<std::string> names = line_names(commands);
    for (std::size_t i = 0; i < commands.size(); ++i)
        children_.push_back(std::make_unique<Child>(
            place_, commands[i], names[i],
            [this, program = commands[i].front()](int status) { ended_(program, status); }));
}

bool Children::running() const {
    return std::ranges::any_of(children_, [](const auto& child) { return child->running(); });
}

}  // namespace camera
