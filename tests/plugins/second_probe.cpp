#include "fenwa/registry.hpp"

// A type of the probe plug-in, registered once more.
int lib_register_cpp(Fenwa::IRegistry* registry) {
    registry->register_block<Fenwa::Block>("Probe");
    return 0;
}
