#include "framework/shared/port_watch.hpp"

#include <utility>

namespace Fenwa {
namespace {

thread_local const PortWatch* watch = nullptr;

}  // namespace

PortWatch::PortWatch(std::function<void(const InPortInternal&)> on_input,
                     std::function<void(const OutPortInternal&)> on_output)
    : on_input_(std::move(on_input)), on_output_(std::move(on_output)) {
    watch = this;
}

PortWatch::~PortWatch() {
    watch = nullptr;
}

void PortWatch::added(const InPortInternal* port) {
    if (watch != nullptr && port != nullptr)
        watch->on_input_(*port);
}

void PortWatch::added(const OutPortInternal* port) {
    if (watch != nullptr && port != nullptr)
        watch->on_output_(*port);
}

}  // namespace Fenwa
