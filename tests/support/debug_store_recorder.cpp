#include "tests/support/debug_store_recorder.hpp"

#include <sstream>
#include <utility>

#include "framework/shared/configuration_access.hpp"
#include "framework/shared/debug_data_store.hpp"

namespace support {
namespace {

DebugStoreRecorder* current_recorder = nullptr;

template <class Variant>
std::string text_of(const Variant& variant) {
    std::ostringstream text;
    text.precision(9);
    std::visit(
        [&text](const auto& value) {
            if constexpr (requires { text << value; })
                text << value;
            else
                text << value.size() << " strings";
        },
        variant);
    return text.str();
}

std::vector<std::string> entries_of(const Fenwa::BlockConfiguration& config) {
    std::vector<std::string> entries;
    for (const auto& entry : Fenwa::ConfigurationAccess::entries(config))
        entries.push_back(entry.key() + "=" + text_of(entry.value()));
    return entries;
}

}  // namespace
}  // namespace support

// NOLINTBEGIN(bugprone-reserved-identifier): the linker fixes these names.
extern "C" {

Fenwa::DebugDataStore& __real__ZN5Fenwa10debug_dataEv();

Fenwa::DebugDataStore& __wrap__ZN5Fenwa10debug_dataEv() {
    if (support::current_recorder != nullptr)
        return *support::current_recorder;
    return __real__ZN5Fenwa10debug_dataEv();
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

namespace support {

DebugStoreRecorder::DebugStoreRecorder() {
    current_recorder = this;
}

DebugStoreRecorder::~DebugStoreRecorder() {
    current_recorder = nullptr;
}

Fenwa::RegisteredBlock DebugStoreRecorder::register_block(const Fenwa::Block& block,
                                                          const Fenwa::BlockConfiguration& config,
                                                          const Fenwa::BlockConfiguration& extra) {
    journal_->record(effect::building, "register with the debug-data store");
    registrations_.push_back(
        {&block, block.get_outport_names(), entries_of(config), entries_of(extra)});
    return __real__ZN5Fenwa10debug_dataEv().register_block(block, config, extra);
}

std::optional<Fenwa::DebugValue> DebugStoreRecorder::get_value(const std::string& key) const {
    return __real__ZN5Fenwa10debug_dataEv().get_value(key);
}

void DebugStoreRecorder::set_value(std::string key, Fenwa::DebugValue value) {
    journal_->record(effect::debug,
                     key + " = #" + std::to_string(value.index()) + " " + text_of(value));
    __real__ZN5Fenwa10debug_dataEv().set_value(std::move(key), std::move(value));
}

}  // namespace support
