#include "tools/abi-check/child.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string_view>
#include <system_error>

#include "tools/abi-check/exit_code.hpp"

namespace abi_check {
namespace {

constexpr unsigned time_limit = 10;  // seconds
constexpr const char* load_error = "cannot load";

void write_line(int descriptor, const Row& row) {
    const std::string line = to_line(row) + '\n';
    for (std::string_view rest = line; !rest.empty();) {
        const ssize_t written = write(descriptor, rest.data(), rest.size());
        if (written < 0)
            _exit(exit_differs);
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
}

[[noreturn]] void become_check(int descriptor, const std::string& name,
                               const std::function<void(const AddRow&)>& check) {
    alarm(time_limit);
    const auto add = [descriptor](const Row& row) { write_line(descriptor, row); };
    try {
        check(add);
    } catch (const LoadError& error) {
        add({Row::Result::differs, load_error, error.what(), {}});
        _exit(exit_no_input);
    } catch (const std::exception& error) {
        add({Row::Result::differs, name, "threw", error.what()});
    } catch (...) {
        add({Row::Result::differs, name, "threw", "something that is not a std::exception"});
    }
    // No destructors: they belong to libraries that may be broken.
    _exit(0);
}

std::string read_all(int descriptor) {
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t length = 0; (length = read(descriptor, part.data(), part.size())) != 0;) {
        if (length > 0)
            text.append(part.data(), static_cast<std::size_t>(length));
        else if (errno != EINTR)
            break;
    }
    return text;
}

}  // namespace

std::vector<Row> run_in_child(const std::string& name,
                              const std::function<void(const AddRow&)>& check) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) < 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        close(ends[0]);
        become_check(ends[1], name, check);
    }
    close(ends[1]);
    std::istringstream lines(read_all(ends[0]));
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }

    std::vector<Row> rows;
    for (std::string line; std::getline(lines, line);)
        rows.push_back(parse_row(line));
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        const std::string after = rows.empty() ? "" : ", after " + rows.back().subject;
        rows.push_back(
            {Row::Result::differs, name, "crashed",
             signal == SIGALRM ? "took more than 10 seconds" + after : strsignal(signal) + after});
    } else if (WEXITSTATUS(status) == exit_no_input && !rows.empty() &&
               rows.back().kind == load_error) {
        throw LoadError(rows.back().subject);
    } else if (WEXITSTATUS(status) != 0) {
        rows.push_back({Row::Result::differs, name, "ended early",
                        "exit code " + std::to_string(WEXITSTATUS(status))});
    }
    return rows;
}

}  // namespace abi_check
