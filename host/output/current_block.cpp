#include "host/output/current_block.hpp"

#include <string_view>

namespace host {
namespace {

thread_local const std::string* current_block = nullptr;
thread_local sd_bus* followed_bus = nullptr;
thread_local std::string block_of_slot;

/// Tells our descriptions of slots from those of blocks.
constexpr std::string_view mark_of_slots = "fenwa block ";

}  // namespace

CurrentBlock::CurrentBlock(const std::string& name, const char* phase)
    : activity_("block", name.c_str(), phase), outer_(current_block) {
    current_block = &name;
}

CurrentBlock::~CurrentBlock() {
    current_block = outer_;
}

const std::string* CurrentBlock::name() noexcept {
    if (current_block != nullptr || followed_bus == nullptr)
        return current_block;
    sd_bus_slot* const slot = sd_bus_get_current_slot(followed_bus);
    const char* description = nullptr;
    if (slot == nullptr || sd_bus_slot_get_description(slot, &description) < 0 ||
        !std::string_view(description).starts_with(mark_of_slots))
        return nullptr;
    block_of_slot = description + mark_of_slots.size();
    return &block_of_slot;
}

void CurrentBlock::follow(sd_bus* bus) noexcept {
    followed_bus = bus;
}

void CurrentBlock::mark(sd_bus_slot& slot) noexcept {
    if (const std::string* const block = name())
        sd_bus_slot_set_description(&slot, (std::string(mark_of_slots) + *block).c_str());
}

}  // namespace host
