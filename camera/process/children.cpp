#include "camera/process/children.hpp"

#include <algorithm>

namespace camera {

void Guests::start(const std::vector<std::string>& command, const std::string& bus_address) {
    guests_.push_back(std::make_unique<Guest>(
        reaper_, command, bus_address,
        [this, program = command.front()](int status) { ended_(program, status); }));
}

bool Guests::running() const {
    return std::ranges::any_of(guests_, [](const auto& guest) { return guest->running(); });
}

}  // namespace camera
