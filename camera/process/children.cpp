#include "camera/process/children.hpp"

#include <algorithm>

namespace camera {

void Children::start(const std::vector<std::string>& command, const std::string& bus_address) {
    children_.push_back(std::make_unique<Child>(
        reaper_, command, bus_address,
        [this, program = command.front()](int status) { ended_(program, status); }));
}

bool Children::running() const {
    return std::ranges::any_of(children_, [](const auto& child) { return child->running(); });
}

}  // namespace camera
