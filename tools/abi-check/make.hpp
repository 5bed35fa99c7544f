#pragma once

#include <initializer_list>
#include <string>

#include "fenwa/fenwa.hpp"
#include "tools/abi-check/libraries.hpp"

namespace abi_check {

// Constructors of the framework, called as a plug-in calls them but found by name, so that this
// program loads without a framework.

inline void make_configuration(const Framework& framework, void* place,
                               std::initializer_list<Fenwa::BlockConfiguration::KeyValue> entries) {
    framework.function<void(void*, std::initializer_list<Fenwa::BlockConfiguration::KeyValue>)>(
        "_ZN5Fenwa18BlockConfigurationC1ESt16initializer_listINS0_8KeyValueEE")(place, entries);
}

inline void make_block(const Framework& framework, void* place, const std::string& name,
                       const Fenwa::BlockConfiguration& config) {
    // A class as a parameter is passed by its address.
    std::string passed = name;
    framework.function<void(void*, std::string*, const Fenwa::BlockConfiguration&)>(
        "_ZN5Fenwa5BlockC2ENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
        "RKNS_18BlockConfigurationE")(place, &passed, config);
}

inline void make_input(const Framework& framework, void* place, const std::string& name) {
    std::string passed = name;
    Fenwa::Datatype datatype("/abi/check");
    framework.function<void(void*, std::string*, Fenwa::Datatype*, bool)>(
        "_ZN5Fenwa14InPortInternalC2ENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
        "NS_8DatatypeEb")(place, &passed, &datatype, true);
}

inline void make_output(const Framework& framework, void* place, const std::string& name) {
    std::string passed = name;
    Fenwa::Datatype datatype("/abi/check");
    framework.function<void(void*, std::string*, Fenwa::Datatype*)>(
        "_ZN5Fenwa15OutPortInternalC2ENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
        "NS_8DatatypeE")(place, &passed, &datatype);
}

inline Fenwa::EventPort* make_event_port(const Framework& framework, Fenwa::Block* block,
                                         const std::string& name) {
    return framework.function<Fenwa::EventPort*(Fenwa::Block*, const std::string&)>(
        "_ZN5Fenwa5Block14make_eventportERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE")(
        block, name);
}

inline Fenwa::DebugDataStore& debug_data(const Framework& framework) {
    return framework.function<Fenwa::DebugDataStore&()>("_ZN5Fenwa10debug_dataEv")();
}

/// Memory for an object of the framework, and a view of it.
template <class T>
struct Storage {
    alignas(T) std::byte bytes[sizeof(T) + 1024]{};
    T* object = reinterpret_cast<T*>(bytes);
};

}  // namespace abi_check
