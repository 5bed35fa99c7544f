#pragma once

#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace test {

/// State ('R', 'S', 'T' …) and parent of a process, as /proc has them; '?' where it is gone.
struct ProcessState {
    char state = '?';
    pid_t parent = 0;
};

inline ProcessState state_of(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string line;
    std::getline(file, line);
    ProcessState found;
    std::istringstream(line.substr(std::min(line.rfind(')') + 1, line.size()))) >> found.state >>
        found.parent;
    return found;
}

/// The processes whose parent this one is.
inline std::vector<pid_t> children_of(pid_t parent) {
    std::vector<pid_t> children;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        if (state_of(std::stoi(name)).parent == parent)
            children.push_back(std::stoi(name));
    }
    return children;
}

/// The processes that have this, "NAME=VALUE", in their environment: all that descend from one that
/// was started with it.
inline std::vector<pid_t> processes_with(const std::string& variable) {
    std::vector<pid_t> found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        std::ifstream file(entry.path() / "environ", std::ios::binary);
        std::stringstream environment;
        environment << file.rdbuf();
        if (environment.str().find(variable + '\0') != std::string::npos)
            found.push_back(std::stoi(entry.path().filename().string()));
    }
    return found;
}

/// Memory that a process has written to and shares with nobody, in KiB; 0 where it is gone. Not the
/// dirty pages: a kernel that looks for idle memory marks what was not written to lately as clean.
inline long own_memory(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/status");
    for (std::string word; file >> word;) {
        long kibibytes = 0;
        if (word == "RssAnon:" && file >> kibibytes)
            return kibibytes;
    }
    return 0;
}

}  // namespace test
