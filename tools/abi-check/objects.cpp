#include <string>
#include <vector>

#include "tools/abi-check/checks.hpp"
#include "tools/abi-check/make.hpp"
#include "tools/abi-check/memory.hpp"

namespace abi_check {
namespace {

/// The headers' size is right where it is what was written, rounded up to the alignment.
template <class T>
void check_size(const std::string& name, const std::function<void(void*)>& construct,
                const AddRow& add) {
    WatchedMemory memory;
    const std::size_t end = memory.written_by(construct);
    const std::size_t found = (end + alignof(T) - 1) / alignof(T) * alignof(T);
    add({found == sizeof(T) ? Row::Result::ok : Row::Result::differs, "size", name,
         std::to_string(found) + " bytes" +
             (found == sizeof(T) ? "" : ", expected " + std::to_string(sizeof(T)))});
}

template <class T>
void check_value(const std::string& subject, const T& found, const T& expected, const AddRow& add) {
    add({found == expected ? Row::Result::ok : Row::Result::differs, "value", subject,
         found == expected ? "as given" : "another one"});
}

}  // namespace

void check_sizes(const Options& options, const AddRow& add) {
    const Framework framework(options);
    Storage<Fenwa::BlockConfiguration> config;
    make_configuration(framework, config.bytes, {{"key", 1}});
    check_size<Fenwa::BlockConfiguration>(
        "Fenwa::BlockConfiguration",
        [&](void* place) {
            make_configuration(framework, place, {{"key", 1}});
        },
        add);
    check_size<Fenwa::Block>(
        "Fenwa::Block", [&](void* place) { make_block(framework, place, "block", *config.object); },
        add);
    check_size<Fenwa::InPortInternal>(
        "Fenwa::InPortInternal", [&](void* place) { make_input(framework, place, "in"); }, add);
    check_size<Fenwa::OutPortInternal>(
        "Fenwa::OutPortInternal", [&](void* place) { make_output(framework, place, "out"); }, add);

    Storage<Fenwa::Block> block;
    make_block(framework, block.bytes, "block", *config.object);
    check_size<Fenwa::RegisteredBlock>(
        "Fenwa::RegisteredBlock",
        [&](void* place) {
            new (place) Fenwa::RegisteredBlock(debug_data(framework).register_block(
                *block.object, *config.object, *config.object));
        },
        add);
}

void check_settings(const Options& options, const AddRow& add) {
    const Framework framework(options);
    using Config = Fenwa::BlockConfiguration;
    using Key = const std::string&;
    Storage<Config> memory;
    make_configuration(framework, memory.bytes,
                       {{"int", 7}, {"bool", true}, {"double", 0.5}, {"string", {"text"}}});
    const Config& config = *memory.object;
#define ABI_KEY "ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
    const std::string getter = "_ZNK5Fenwa18BlockConfiguration";
    check_value(
        "Fenwa::BlockConfiguration::getInt",
        framework.function<int(const Config&, Key)>(getter + "6getInt" ABI_KEY)(config, "int"), 7,
        add);
    check_value(
        "Fenwa::BlockConfiguration::getBool",
        framework.function<bool(const Config&, Key)>(getter + "7getBool" ABI_KEY)(config, "bool"),
        true, add);
    check_value("Fenwa::BlockConfiguration::getFloat",
                framework.function<float(const Config&, Key)>(getter + "8getFloat" ABI_KEY)(
                    config, "double"),
                0.5F, add);
    check_value("Fenwa::BlockConfiguration::getDouble",
                framework.function<double(const Config&, Key)>(getter + "9getDouble" ABI_KEY)(
                    config, "double"),
                0.5, add);
    check_value("Fenwa::BlockConfiguration::getString",
                framework.function<std::string(const Config&, Key)>(getter + "9getString" ABI_KEY)(
                    config, "string"),
                std::string("text"), add);
#undef ABI_KEY
}

void check_ports(const Options& options, const AddRow& add) {
    const Framework framework(options);
    Storage<Fenwa::BlockConfiguration> config;
    make_configuration(framework, config.bytes, {});
    Storage<Fenwa::Block> memory;
    make_block(framework, memory.bytes, "a name", *config.object);
    Fenwa::Block* const block = memory.object;
    check_value("Fenwa::Block::get_name", block->get_name(), std::string("a name"), add);

    // The members that the headers read in place.
    Storage<Fenwa::InPortInternal> input;
    make_input(framework, input.bytes, "in");
    check_value("Fenwa::Port::name", input.object->name(), std::string("in"), add);
    check_value("Fenwa::InPortInternal::datatype", input.object->datatype().path(),
                std::string("/abi/check"), add);
    check_value("Fenwa::InPortInternal::triggers", input.object->triggers(), true, add);
    check_value("Fenwa::InPortInternal::is_triggered", input.object->is_triggered(), false, add);
    Storage<Fenwa::OutPortInternal> output;
    make_output(framework, output.bytes, "out");
    check_value("Fenwa::OutPortInternal::datatype", output.object->datatype().path(),
                std::string("/abi/check"), add);
    const Fenwa::EventPort* const event = make_event_port(framework, block, "event");
    check_value("Fenwa::EventPort::name", event->name(), std::string("event"), add);
}

void check_debug_data(const Options& options, const AddRow& add) {
    const Framework framework(options);
    Fenwa::DebugDataStore& store = debug_data(framework);
    using Value = Fenwa::DebugValue;
    const std::vector<std::pair<std::string, Value>> values{
        {"string", "text"}, {"int", 7}, {"float", 0.5F}, {"double", 0.25}, {"bool", true}};
    for (const auto& [type, value] : values) {
        store.set_value("fenwa-abi-check", value);
        check_value("Fenwa::DebugDataStore with a " + type, store.get_value("fenwa-abi-check"),
                    std::optional(value), add);
    }
}

}  // namespace abi_check
