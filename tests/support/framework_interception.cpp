#include "tests/support/framework_interception.hpp"

#include <atomic>
#include <utility>

#include "fenwa/debug_data.hpp"
#include "tests/support/configuration_recorder.hpp"
#include "tests/support/effect_journal.hpp"

// What blocks do with the framework: the journal is told, and the framework does it.

namespace {

using support::EffectJournal;
namespace effect = support::effect;

std::atomic<pthread_mutex_t*> recorded_mutex = nullptr;
std::atomic<int> next_lock_error = 0;
thread_local bool finds_mutex = false;
thread_local pthread_mutex_t* found_mutex = nullptr;

void record(unsigned kind, const std::string& entry) {
    if (const auto journal = EffectJournal::current())
        journal->record(kind, entry);
}

void record_port(const Fenwa::Block& block, Fenwa::Port* port, const std::string& kind) {
    if (const auto journal = EffectJournal::current()) {
        journal->record(effect::building, kind + " " + port->name());
        journal->add_port(block, *port);
    }
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker fixes these
// names. What returns an object's address is a destructor, which does so on some machines.
extern "C" {

void __real__ZN5Fenwa9EventPort4fireEv(Fenwa::EventPort* port);

void __wrap__ZN5Fenwa9EventPort4fireEv(Fenwa::EventPort* port) {
    record(effect::fire, "fire " + port->name());
    __real__ZN5Fenwa9EventPort4fireEv(port);
}

Fenwa::EventPort*
__real__ZN5Fenwa5Block14make_eventportERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(
    Fenwa::Block* block, const std::string& name);

Fenwa::EventPort*
__wrap__ZN5Fenwa5Block14make_eventportERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(
    Fenwa::Block* block, const std::string& name) {
    Fenwa::EventPort* const port =
        __real__ZN5Fenwa5Block14make_eventportERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE(
            block, name);
    record_port(*block, port, "event");
    return port;
}

Fenwa::InPortInternal*
__real__ZN5Fenwa5Block10add_inportESt10unique_ptrINS_14InPortProviderESt14default_deleteIS2_EE(
    Fenwa::Block* block, std::unique_ptr<Fenwa::InPortProvider> provider);

Fenwa::InPortInternal*
__wrap__ZN5Fenwa5Block10add_inportESt10unique_ptrINS_14InPortProviderESt14default_deleteIS2_EE(
    Fenwa::Block* block, std::unique_ptr<Fenwa::InPortProvider> provider) {
    Fenwa::InPortInternal* const port =
        __real__ZN5Fenwa5Block10add_inportESt10unique_ptrINS_14InPortProviderESt14default_deleteIS2_EE(
            block, std::move(provider));
    record_port(*block, port, "input");
    return port;
}

Fenwa::OutPortInternal*
__real__ZN5Fenwa5Block11add_outportESt10unique_ptrINS_15OutPortInternalESt14default_deleteIS2_EE(
    Fenwa::Block* block, std::unique_ptr<Fenwa::OutPortInternal> port);

Fenwa::OutPortInternal*
__wrap__ZN5Fenwa5Block11add_outportESt10unique_ptrINS_15OutPortInternalESt14default_deleteIS2_EE(
    Fenwa::Block* block, std::unique_ptr<Fenwa::OutPortInternal> owned) {
    Fenwa::OutPortInternal* const port =
        __real__ZN5Fenwa5Block11add_outportESt10unique_ptrINS_15OutPortInternalESt14default_deleteIS2_EE(
            block, std::move(owned));
    record_port(*block, port, "output");
    return port;
}

void __real__ZN5Fenwa5Block8add_dbusERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES8_PK13sd_bus_vtablePv(
    Fenwa::Block* block, const std::string& path, const std::string& interface,
    const sd_bus_vtable* vtable, void* userdata);

void __wrap__ZN5Fenwa5Block8add_dbusERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES8_PK13sd_bus_vtablePv(
    Fenwa::Block* block, const std::string& path, const std::string& interface,
    const sd_bus_vtable* vtable, void* userdata) {
    record(effect::building, "export " + path + " " + interface);
    __real__ZN5Fenwa5Block8add_dbusERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES8_PK13sd_bus_vtablePv(
        block, path, interface, vtable, userdata);
}

void __real__ZN5Fenwa5Block4stopEv(Fenwa::Block* block);

void __wrap__ZN5Fenwa5Block4stopEv(Fenwa::Block* block) {
    record(effect::operation, "Block::stop");
    __real__ZN5Fenwa5Block4stopEv(block);
}

void* __real__ZN5Fenwa5BlockD2Ev(Fenwa::Block* block);

void* __wrap__ZN5Fenwa5BlockD2Ev(Fenwa::Block* block) {
    if (const auto journal = EffectJournal::current())
        journal->forget_ports(*block);
    return __real__ZN5Fenwa5BlockD2Ev(block);
}

void* __real__ZN5Fenwa15RegisteredBlockD1Ev(Fenwa::RegisteredBlock* registration);

void* __wrap__ZN5Fenwa15RegisteredBlockD1Ev(Fenwa::RegisteredBlock* registration) {
    record(effect::building, "end the registration");
    return __real__ZN5Fenwa15RegisteredBlockD1Ev(registration);
}

bool __real__ZNK5Fenwa4Port12is_triggeredEv(const Fenwa::Port* port);

bool __wrap__ZNK5Fenwa4Port12is_triggeredEv(const Fenwa::Port* port) {
    if (dynamic_cast<const Fenwa::InPortInternal*>(port) != nullptr)
        record(effect::look, "look at " + port->name());
    return __real__ZNK5Fenwa4Port12is_triggeredEv(port);
}

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (std::exchange(finds_mutex, false))
        found_mutex = mutex;
    if (mutex != recorded_mutex)
        return __real_pthread_mutex_lock(mutex);
    if (const int error = next_lock_error.exchange(0))
        return error;
    record(effect::lock, "lock");
    return __real_pthread_mutex_lock(mutex);
}

int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    if (mutex == recorded_mutex)
        record(effect::lock, "unlock");
    return __real_pthread_mutex_unlock(mutex);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace support {

std::vector<std::string> triggered_ports(const Fenwa::Block& block) {
    std::vector<std::string> names;
    for (const Fenwa::Port* port : EffectJournal::shared()->ports(block)) {
        if (dynamic_cast<const Fenwa::OutPortInternal*>(port) == nullptr &&
            __real__ZNK5Fenwa4Port12is_triggeredEv(port))
            names.push_back(port->name());
    }
    return names;
}

Fenwa::BlockConfiguration observed(const Fenwa::BlockConfiguration& config) {
    const auto recorder = std::make_shared<ConfigurationRecorder>();
    recorder->on_each = [&reads = recorder->reads](const std::string& /*key*/) {
        record(effect::key, reads.back());
    };
    return Fenwa::ConfigurationAccess::observed(config, recorder);
}

pthread_mutex_t* mutex_locked_by(const std::function<void()>& call) {
    found_mutex = nullptr;
    finds_mutex = true;
    call();
    finds_mutex = false;
    return found_mutex;
}

LockRecorder::LockRecorder(pthread_mutex_t* mutex) {
    recorded_mutex = mutex;
}

LockRecorder::~LockRecorder() {
    recorded_mutex = nullptr;
    next_lock_error = 0;
}

void LockRecorder::fail_next(int error) {
    next_lock_error = error;
}

}  // namespace support
