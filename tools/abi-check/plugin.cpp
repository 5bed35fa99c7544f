#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <string_view>

#include "tools/abi-check/checks.hpp"
#include "tools/abi-check/make.hpp"

namespace abi_check {
namespace {

constexpr std::array<std::string_view, 7> types{
    "OnScreenControls",   "PowerConsumer",     "PowerMonitor", "PrioritizedTextOverlaySetter",
    "TemperatureMonitor", "TemperatureReader", "VideoReady"};
/// The types whose constructor calls nobody on the bus.
constexpr std::array<std::string_view, 4> types_without_bus{
    "OnScreenControls", "PowerConsumer", "PrioritizedTextOverlaySetter", "TemperatureReader"};

/// Keeps what a plug-in registers.
class Registry final : public Fenwa::IRegistry {
  public:
    void register_factory(const std::string& type_name,
                          const Fenwa::BlockFactory& factory) override {
        factories.emplace_back(type_name, factory);
    }

    std::vector<std::pair<std::string, Fenwa::BlockFactory>> factories;
};

int register_types(void* plugin, Fenwa::IRegistry& registry) {
    using EntryPoint = int(Fenwa::IRegistry*);
    auto* const entry = reinterpret_cast<EntryPoint*>(dlsym(plugin, "lib_register_cpp"));
    if (entry == nullptr)
        throw std::runtime_error("the plug-in has no lib_register_cpp");
    return entry(&registry);
}

}  // namespace

void check_types(const Options& options, const AddRow& add) {
    const Framework framework(options);
    Registry registry;
    const int result = register_types(load_plugin(options.plugin), registry);
    add({result == 0 ? Row::Result::ok : Row::Result::differs, "type", "lib_register_cpp",
         "returns " + std::to_string(result)});
    const auto registered = [&registry](std::string_view type) {
        return std::ranges::count(registry.factories, type,
                                  [](const auto& row) { return std::string_view(row.first); });
    };
    for (const std::string_view type : types) {
        const auto times = registered(type);
        add({times == 1 ? Row::Result::ok : Row::Result::differs, "type", std::string(type),
             times == 1   ? "registered"
             : times == 0 ? "not registered"
                          : "registered " + std::to_string(times) + " times"});
    }
    for (const auto& [type, factory] : registry.factories) {
        if (std::ranges::find(types, type) == types.end())
            add({Row::Result::differs, "type", type, "registered, not expected"});
    }
}

void check_blocks(const Options& options, const AddRow& add) {
    // The blocks' log lines are no rows.
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    dup2(nowhere, STDOUT_FILENO);

    const Framework framework(options);
    Registry registry;
    register_types(load_plugin(options.plugin), registry);
    Storage<Fenwa::BlockConfiguration> config;
    make_configuration(
        framework, config.bytes,
        {{"channel", 0}, {"delta_chg", 1.0}, {"power", 1.0}, {"sensor_name", {"main"}}});
    // First in the tools is the access to the bus, which these constructors do not use.
    const void* const no_bus = nullptr;
    const auto& tools = reinterpret_cast<const Fenwa::InitTools&>(no_bus);
    for (const auto& [type, factory] : registry.factories) {
        if (std::ranges::find(types_without_bus, type) == types_without_bus.end())
            continue;
        const std::unique_ptr<Fenwa::Block> block = factory("a name", *config.object, tools);
        const bool named = block->get_name() == "a name";
        add({named ? Row::Result::ok : Row::Result::differs, "block", type,
             named ? "built" : "has another name"});
    }
}

std::vector<Row> measure_time(const Options& options) {
    constexpr std::size_t runs = 25;
    std::vector<double> times;
    for (std::size_t run = 0; run < runs; ++run) {
        // A library that is loaded a second time is there already, so each run is a process.
        const std::vector<Row> rows = run_in_child("time", [&options](const AddRow& add) {
            const Framework framework(options);
            Registry registry;
            using Clock = std::chrono::steady_clock;
            const Clock::time_point start = Clock::now();
            register_types(load_plugin(options.plugin), registry);
            const std::chrono::duration<double, std::milli> taken = Clock::now() - start;
            add({Row::Result::ok, "time", "one run", std::to_string(taken.count())});
        });
        if (rows.size() != 1 || rows.front().result != Row::Result::ok)
            return rows;
        times.push_back(std::stod(rows.front().detail));
    }
    std::ranges::nth_element(times, times.begin() + runs / 2);
    return {{Row::Result::ok, "time", "loading and registering",
             std::to_string(times[runs / 2]) + " ms, median of " + std::to_string(runs)}};
}

}  // namespace abi_check
