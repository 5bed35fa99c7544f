#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "fenwa/registry.hpp"

// Registers one type, and then its entry point throws, crashes or hangs.
int lib_register_cpp(Fenwa::IRegistry* registry) {
    registry->register_block<Fenwa::Block>("Early");
#if defined(ENTRY_THROWS)
    throw std::runtime_error("no licence");
#elif defined(ENTRY_ABORTS)
    std::abort();
#else
    for (;;)
        pause();
#endif
}
