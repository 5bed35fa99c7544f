#include "common/process/process_tree.hpp"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace common {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// The parent of a process, 0 where it is gone.
pid_t parent_of(const std::string& process) {
    std::ifstream file("/proc/" + process + "/stat");
    std::string line;
    std::getline(file, line);
    // "PID (NAME) STATE PARENT …", where the name may hold anything.
    std::istringstream rest(line.substr(std::min(line.rfind(')') + 1, line.size())));
    char state = 0;
    pid_t parent = 0;
    rest >> state >> parent;
    return parent;
}

}  // namespace

void adopt_orphans() noexcept {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

std::vector<pid_t> children_of_this_process() {
    const pid_t self = getpid();
    std::vector<pid_t> children;
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (std::isdigit(static_cast<unsigned char>(name[0])) != 0 && parent_of(name) == self)
            children.push_back(std::stoi(name));
    }
    return children;
}

void kill_children(std::chrono::milliseconds limit) noexcept {
    const Clock::time_point deadline = Clock::now() + limit;
    // The orphans of a child are adopted before the child can be reaped, so that no process is left
    // when no child is.
    while (true) {
        pid_t reaped = 0;
        do
            reaped = waitpid(-1, nullptr, WNOHANG);
        while (reaped > 0);
        if (reaped < 0 || Clock::now() >= deadline)
            return;
        try {
            for (const pid_t child : children_of_this_process())
                kill(child, SIGKILL);
        } catch (const std::exception&) {
            return;  // no memory is left to read their list
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace common
