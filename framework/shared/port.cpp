#include "fenwa/port.hpp"

#include "fenwa/block.hpp"
#include "framework/shared/ready_queue.hpp"

namespace Fenwa {

Port::Port(std::string name) : name_(std::move(name)) {}

Port::~Port() = default;

bool Port::is_triggered() const {
    return triggered_;
}

void Port::reset(bool dealt_with) {
    if (dealt_with)
        triggered_ = false;
}

InPortInternal::InPortInternal(std::string name, Datatype datatype, bool triggers)
    : Port(std::move(name)), datatype_(std::move(datatype)), triggers_(triggers) {}

InPortInternal::~InPortInternal() = default;

InPortProvider::~InPortProvider() = default;

OutPortInternal::OutPortInternal(std::string name, Datatype datatype)
    : Port(std::move(name)), datatype_(std::move(datatype)) {}

OutPortInternal::~OutPortInternal() = default;

EventPort::EventPort(std::string name, Block& block) : Port(std::move(name)), block_(block) {}

EventPort::~EventPort() = default;

void EventPort::fire() noexcept {
    set_pending();
    ReadyQueue::make_ready(block_);
}

}  // namespace Fenwa
