#include "src/frame/dbus_client.hpp"

#include "src/frame/name_owner.hpp"

namespace blocks {

DBusClient::DBusClient(const std::string& followed_name, std::string name,
                       const Fenwa::BlockConfiguration& config)
    : Fenwa::Block(std::move(name), config),
      event_port(make_eventport("event_port")),
      service_name(followed_name),
      state(OwnerState::Idle) {
    event_port->fire();
}

DBusClient::~DBusClient() {
    call_slot.reset();
    match_slot.reset();
}

void DBusClient::stop() {
    state = OwnerState::Stopped;
    match_slot.reset();
    call_slot.reset();
    owner_match.released();
}

bool DBusClient::run() {
    switch (state) {
        case OwnerState::Idle:
            add_match();
            break;
        case OwnerState::MatchAdded:
            query_owner();
            break;
        case OwnerState::OwnerAppeared:
            on_service_appeared();
            state = OwnerState::Running;
            run_with_service();
            break;
        case OwnerState::Running:
            run_with_service();
            break;
        case OwnerState::AddingMatch:
        case OwnerState::QueryingOwner:
        case OwnerState::NoOwner:
        case OwnerState::Stopped:
            break;
    }
    return true;
}

void DBusClient::wake() noexcept {
    if (state != OwnerState::Stopped)
        event_port->fire();
}

sd_bus* DBusClient::bus() const {
    return Fenwa::bus_of(*this);
}

void DBusClient::add_match() {
    owner_match.install_async<&DBusClient::on_owner_changed, &DBusClient::on_match_installed>(
        bus(), match_slot, *this);
    state = OwnerState::AddingMatch;
}

void DBusClient::query_owner() {
    // An earlier question has been answered, so its slot may go.
    query_owner_async<&DBusClient::on_owner_answer>(bus(), call_slot, service_name, *this);
    state = OwnerState::QueryingOwner;
}

int DBusClient::on_match_installed(sd_bus_message* reply, sd_bus_error* /*error*/) {
    const bool installed = owner_match_installed(reply);
    owner_match.answered(installed);
    if (!installed)
        owner_match.discard(match_slot);
    state = installed ? OwnerState::MatchAdded : OwnerState::Idle;
    event_port->fire();
    return 0;
}

int DBusClient::on_owner_answer(sd_bus_message* reply, sd_bus_error* /*error*/) {
    const OwnerAnswer answer = read_owner_answer(reply);
    state = state_after<OwnerState>(answer);
    // No wake-up after an unreadable answer: the next run for another reason asks again.
    if (answer.kind != OwnerAnswer::Kind::unreadable)
        event_port->fire();
    return answer.result;
}

int DBusClient::on_owner_changed(sd_bus_message* signal, sd_bus_error* /*error*/) {
    OwnerChange change;
    if (const int r = take_owner_change(signal, change); r < 0)
        return r;
    if (change.is_of(service_name)) {
        // In every state, also when stopped.
        state = state_after<OwnerState>(change);
        event_port->fire();
    } else {
        wake();
    }
    return 0;
}

}  // namespace blocks
