#include "tests/soak/stalls.hpp"

namespace soak {
namespace {

constexpr Stall table[] = {
    {"reader", "log reader: Failed to parse sensor id: ", 1, Remedy::rebuild,
     "a reply that it cannot read keeps its call open, and it has no retry timer"},
    {"reader", "log reader: Failed to setup temperature change singal: ", 1, Remedy::rebuild,
     "a registration that it cannot read keeps its call open, and it has no retry timer"},
    {"reader", "down temperature", 1, Remedy::change,
     "after a restart it registers for changes again and does not read"},
    {"reader", "fault temperature.TemperatureChangeSignal", 1, Remedy::change,
     "the signal with the change did not come, or came after a newer one"},
    {"reader", "late temperature.GetTemperature", 1, Remedy::change,
     "its first reading came after the signal of a newer one"},

    {"guard", "log guard: Failed to read temperature signal result: ", 1, Remedy::rebuild,
     "a registration that it cannot read keeps its call open, and it has no retry timer"},
    {"guard", "fault temperature.TemperatureSignal", 1, Remedy::change,
     "the signal of the crossing did not come, or came after a newer one"},
    {"guard", "late temperature.RegisterForTemperatureSignal", 1, Remedy::change,
     "the reply with 'crossed already' came after the signal of a newer crossing"},

    {"power", "failed Register", 1, Remedy::rebuild,
     "an error reply counts as registered, and nothing is sent again"},
    {"power", "failed RequestPower", 1, Remedy::rebuild,
     "an error reply counts as a request that was taken, and nothing is sent again"},
    {"power", "fault power-consumer.SetPower", 1, Remedy::change,
     "the call with the share did not come, or came after a newer one"},

    {"supply", "down power-status", 1, Remedy::change,
     "it does not follow the service's owner, and a change while it is down is not signalled"},
    {"supply", "fault power-status.PropertiesChanged", 1, Remedy::change,
     "the signal with the change did not come, or came after a newer one"},
    {"supply", "late power-status.Get", 1, Remedy::change,
     "the reply came after the signal of a newer value"},
    {"supply", "late power-status.PowerReceived", 1, Remedy::change,
     "the reply came after the signal of a newer value"},
    {"supply", "log supply: Failed to read value of PowerReceived: ", 11, Remedy::change,
     "after eleven failures it stops asking"},

    {"buttons", "log buttons: Failed to enter ", 1, Remedy::rebuild,
     "a list that it cannot read is discarded until the service's owner changes"},

    {"greeting", "down overlay", 1, Remedy::rebuild,
     "it sets its text once, and a service that restarts has forgotten it"},
    {"greeting", "failed Set", 1, Remedy::rebuild,
     "an error reply counts as set, and nothing is sent again"},
    {"earlier greeting", "overlapping Set", 1, Remedy::restart,
     "built anew before the answer, it does not take the earlier text away"},
    {"earlier greeting", "failed Unset", 1, Remedy::restart,
     "it asks once to take the earlier text away"},

    {"video", "disabled video", 1, Remedy::rebuild,
     "where the state of its unit cannot be read, it does not signal at all"},
    {"video", "down video", 1, Remedy::change,
     "it does not follow the service's owner, and a service that restarts has forgotten it"},
};

}  // namespace

std::span<const Stall> stalls() noexcept {
    return table;
}

const Stall* find_stall(std::string_view block, const Incidents& incidents, bool changed) {
    const Stall* found = nullptr;
    for (const Stall& stall : table) {
        if (stall.block != block || (changed && stall.remedy == Remedy::change) ||
            incidents.count(std::string(stall.incident)) < stall.least)
            continue;
        if (found == nullptr || (found->remedy == Remedy::change && stall.remedy != Remedy::change))
            found = &stall;
    }
    return found;
}

bool is_latent(const Stall& stall, const Incidents& incidents) {
    return stall.remedy == Remedy::rebuild && stall.incident.starts_with("log ") &&
           incidents.count(std::string(stall.incident)) >= stall.least;
}

void forget_stalls(std::string_view block, Incidents& incidents) {
    for (const Stall& stall : table) {
        if (stall.block == block && stall.remedy == Remedy::rebuild)
            incidents.forget(std::string(stall.incident));
    }
}

}  // namespace soak
