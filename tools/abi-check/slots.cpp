#include <cstring>
#include <string>
#include <vector>

#include "tools/abi-check/checks.hpp"
#include "tools/abi-check/make.hpp"

namespace abi_check {
namespace {

using Fenwa::Block;
using Fenwa::Port;

/// The slot that the headers give a virtual operation, out of a pointer to it.
template <class Operation>
std::size_t slot_of(Operation operation) {
    std::uintptr_t word = 0;
    static_assert(sizeof(operation) >= sizeof(word));
    std::memcpy(&word, &operation, sizeof(word));
#if !defined(__arm__) && !defined(__aarch64__)
    word -= 1;  // Elsewhere an odd number tells a virtual operation from a function.
#endif
    return word / sizeof(void*);
}

struct Slot {
    std::size_t number;
    const char* operation;
    const char* symbol;
};

#define ABI_STRING "NSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"

std::vector<Slot> block_slots() {
    return {
        {slot_of(&Block::setup), "setup", "_ZN5Fenwa5Block5setupERKNS_18BlockConfigurationE"},
        {slot_of(&Block::get_name), "get_name", "_ZNK5Fenwa5Block8get_nameB5cxx11Ev"},
        {slot_of(&Block::set_name), "set_name", "_ZN5Fenwa5Block8set_nameE" ABI_STRING},
        {slot_of(&Block::get_inport), "get_inport", "_ZNK5Fenwa5Block10get_inportERK" ABI_STRING},
        {slot_of(&Block::get_inport_names), "get_inport_names",
         "_ZNK5Fenwa5Block16get_inport_namesB5cxx11Ev"},
        {slot_of(&Block::get_outport), "get_outport",
         "_ZNK5Fenwa5Block11get_outportERK" ABI_STRING},
        {slot_of(&Block::get_outport_names), "get_outport_names",
         "_ZNK5Fenwa5Block17get_outport_namesB5cxx11Ev"},
        {slot_of(&Block::get_inports_info), "get_inports_info",
         "_ZNK5Fenwa5Block16get_inports_infoEv"},
        {slot_of(&Block::get_outports_info), "get_outports_info",
         "_ZNK5Fenwa5Block17get_outports_infoEv"},
        {slot_of(&Block::get_fdports_info), "get_fdports_info",
         "_ZNK5Fenwa5Block16get_fdports_infoEv"},
        {slot_of(&Block::start), "start", "_ZN5Fenwa5Block5startEv"},
        {slot_of(&Block::stop), "stop", "_ZN5Fenwa5Block4stopEv"},
        {slot_of(&Block::run), "run", "_ZN5Fenwa5Block3runEv"},
        {slot_of(&Block::reconfigure), "reconfigure",
         "_ZN5Fenwa5Block11reconfigureERKNS_18BlockConfigurationES3_"},
    };
}

#undef ABI_STRING

std::vector<Slot> port_slots() {
    return {{slot_of(&Port::is_triggered), "is_triggered", "_ZNK5Fenwa4Port12is_triggeredEv"},
            {slot_of(&Port::reset), "reset", "_ZN5Fenwa4Port5resetEb"}};
}

const void* const* table_of(const void* object) {
    const void* const* table = nullptr;
    std::memcpy(&table, object, sizeof(table));
    return table;
}

void check_class(const Framework& framework, const std::string& name, const void* object,
                 const std::vector<Slot>& slots, std::size_t slot_count, const AddRow& add) {
    const void* const* const table = table_of(object);
    for (const Slot& slot : slots) {
        const std::string subject =
            name + " slot " + std::to_string(slot.number) + " " + slot.operation;
        const void* const found = table[slot.number];
        const void* const wanted = framework.find(slot.symbol);
        const std::string put = symbol_put_at(table + slot.number);
        const std::string name_there = put.empty() ? symbol_at(found) : put;
        if (put.empty() && wanted == nullptr)
            add({Row::Result::unknown, "slot", subject, "no symbol to compare with"});
        else if (put.empty() ? wanted == found : put == slot.symbol)
            add({Row::Result::ok, "slot", subject, library_of(found)});
        else
            add({Row::Result::differs, "slot", subject,
                 "holds " + (name_there.empty() ? std::string("another function")
                                                : readable_name(name_there))});
    }
    // In front of slot 0 are the offset to the top and the type.
    const std::string subject = name + " number of slots";
    const auto bytes = exported_size_at(table - 2);
    if (!bytes) {
        add({Row::Result::unknown, "slot", subject, "the virtual table is not exported"});
        return;
    }
    const std::size_t count = *bytes / sizeof(void*) - 2;
    add({count == slot_count ? Row::Result::ok : Row::Result::differs, "slot", subject,
         std::to_string(count) +
             (count == slot_count ? "" : ", expected " + std::to_string(slot_count))});
}

}  // namespace

void check_slots(const Options& options, const AddRow& add) {
    const Framework framework(options);
    Storage<Fenwa::BlockConfiguration> config;
    make_configuration(framework, config.bytes, {});
    Storage<Block> block;
    make_block(framework, block.bytes, "block", *config.object);
    // The last operation is the last slot.
    check_class(framework, "Fenwa::Block", block.bytes, block_slots(),
                slot_of(&Block::reconfigure) + 1, add);

    const std::size_t port_slot_count = slot_of(&Port::reset) + 1;
    Storage<Fenwa::InPortInternal> input;
    make_input(framework, input.bytes, "in");
    check_class(framework, "Fenwa::InPortInternal", input.bytes, port_slots(), port_slot_count,
                add);
    Storage<Fenwa::OutPortInternal> output;
    make_output(framework, output.bytes, "out");
    check_class(framework, "Fenwa::OutPortInternal", output.bytes, port_slots(), port_slot_count,
                add);
    check_class(framework, "Fenwa::EventPort", make_event_port(framework, block.object, "event"),
                port_slots(), port_slot_count, add);
}

}  // namespace abi_check
