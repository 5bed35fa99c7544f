#include "fenwa/testkit/block_driver.hpp"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <thread>

#include "framework/shared/block_state.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"
#include "framework/testkit/sdbus_result.hpp"

namespace Fenwa::testkit {
namespace {

/// Removes the marks of a run, also after one that throws.
struct Disarming {
    Block& block;
    ~Disarming() { HostAccess::disarm(block); }
};

void check_datatype(const std::string& port, const Datatype& own, const Datatype& asked) {
    if (own != asked)
        throw std::invalid_argument("the port '" + port + "' has the datatype " + own.path() +
                                    ", not " + asked.path());
}

/// The port that a block was asked for. @throws std::invalid_argument when it has none.
template <class Port>
Port& existing(Port* port, const std::string& kind, const std::string& name) {
    if (port == nullptr)
        throw std::invalid_argument("the block has no " + kind + " '" + name + "'");
    return *port;
}

/// The value of an output as one of the alternatives after the index `I`.
template <std::size_t I = 0>
decltype(Output::value) value_of(const OutPortInternal& port) {
    using Values = decltype(Output::value);
    using T = std::variant_alternative_t<I, Values>;
    if constexpr (std::is_same_v<T, OtherValue>) {
        return OtherValue{port.datatype().path()};
    } else {
        const void* const value = HostAccess::value_address(port);
        if (port.datatype() == datatype_of<T>() && value != nullptr)
            return *static_cast<const T*>(value);
        return value_of<I + 1>(port);
    }
}

}  // namespace

struct Driver::State {
    explicit State(SDBusTools& given) : tools(&given) {}

    std::unique_ptr<ScriptedTools> own_tools{};
    InitTools tools;
    ReadyQueue queue{[] {}};
    std::map<std::string, std::shared_ptr<void>> inputs{};
    std::vector<Output> outputs{};
    std::vector<std::string> refused{};
    BlockConfiguration settings{};
    std::vector<Block*> ready{};
    std::unique_ptr<Block> block{};
};

Driver::Driver() {
    auto own = std::make_unique<ScriptedTools>();
    state_ = std::make_unique<State>(*own);
    state_->own_tools = std::move(own);
}

Driver::Driver(SDBusTools& tools) : state_(std::make_unique<State>(tools)) {}

Driver::~Driver() = default;

void Driver::adopt(std::unique_ptr<Block> block) {
    state_->block = std::move(block);
    state_->settings = HostAccess::configuration(*state_->block);
    const auto refuse = [this](const RefusedExport& refused) {
        state_->refused.push_back(refused.path + ' ' + refused.interface);
    };
    for (const RefusedExport& refused :
         HostAccess::adopt(*state_->block, state_->tools, state_->queue, refuse))
        refuse(refused);
}

const InitTools& Driver::tools() const {
    return state_->tools;
}

std::vector<Setting> Driver::setup() {
    BlockConfiguration returned;
    call([&](Block& block) { returned = block.setup(state_->settings); });
    std::vector<Setting> settings;
    for (const auto& entry : ConfigurationAccess::entries(returned))
        settings.push_back({entry.key(), entry.value()});
    return settings;
}

void Driver::start() {
    call([](Block& block) { block.start(); });
}

bool Driver::run() {
    if (!arm())
        return false;
    const Disarming disarming{*state_->block};
    call([](Block& block) { block.run(); });
    return true;
}

void Driver::reconfigure(const BlockConfiguration& changes) {
    const BlockConfiguration after = state_->settings + changes;
    call([&](Block& block) {
        block.reconfigure(state_->settings, after);
        block.reconfigure(after, after);
    });
    state_->settings = after;
}

void Driver::stop() {
    call([](Block& block) { block.stop(); });
}

void Driver::destroy() {
    state_->block.reset();
}

bool Driver::wait_until(const std::function<bool()>& done, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    sd_bus* const bus = state_->tools.sdbus_tools->get_bus();
    for (;;) {
        const bool processed = bus != nullptr && check(sd_bus_process(bus, nullptr)) > 0;
        const bool ran = run();
        if (done())
            return true;
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        if (processed || ran)
            continue;
        // Not longer, because a thread of the block or of a service may be what is waited for.
        constexpr std::chrono::milliseconds pause(2);
        if (bus == nullptr)
            std::this_thread::sleep_for(pause);
        else
            check(sd_bus_wait(bus, std::chrono::microseconds(pause).count()));
    }
}

bool Driver::woken() {
    state_->queue.take(state_->ready);
    return !state_->ready.empty();
}

void Driver::fire(const std::string& event_port) {
    existing(HostAccess::eventport(*state_->block, event_port), "event port", event_port).fire();
}

std::vector<Output> Driver::take_outputs() {
    return std::exchange(state_->outputs, {});
}

const std::vector<std::string>& Driver::refused_exports() const {
    return state_->refused;
}

bool Driver::arm() {
    if (!woken())
        return false;
    state_->ready.clear();
    ReadyQueue::about_to_run(*state_->block);
    return HostAccess::arm(*state_->block);
}

void Driver::disarm() {
    HostAccess::disarm(*state_->block);
}

void Driver::call(const std::function<void(Block&)>& operation) {
    operation(*state_->block);
    for (OutPortInternal* port : HostAccess::outports(*state_->block)) {
        if (!port->is_triggered())
            continue;
        state_->outputs.push_back({port->name(), value_of(*port)});
        port->reset(true);
    }
}

void Driver::deliver(const std::string& input, const Datatype& datatype,
                     std::shared_ptr<void> value) {
    InPortInternal& port = existing(state_->block->get_inport(input), "input", input);
    check_datatype(input, port.datatype(), datatype);
    HostAccess::connect(port, value.get());
    state_->inputs.insert_or_assign(input, std::move(value));
    HostAccess::notify(port, *state_->block);
}

const void* Driver::value_address(const std::string& output, const Datatype& datatype) {
    const OutPortInternal& port = existing(state_->block->get_outport(output), "output", output);
    check_datatype(output, port.datatype(), datatype);
    return HostAccess::value_address(port);
}

}  // namespace Fenwa::testkit
