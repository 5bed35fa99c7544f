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

}  // namespace test
