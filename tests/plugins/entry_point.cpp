#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "fenwa/fenwa.hpp"

// Built once for each way in which an entry point can behave: ENTRY names it.
int lib_register_cpp(Fenwa::IRegistry* registry) {
    const std::string entry = ENTRY;
    if (entry == "chatty")
        logger(4, "%s\n", "x\nfenwa: ready\x1b[2J\x7f\u009b\u202e");
    if (entry == "refusing")
        return 7;
    if (entry == "oddly-throwing")
        throw 42;
    if (entry == "throwing")
        throw std::runtime_error("no licence");
    // A type of the probe plug-in, registered a second time.
    if (entry == "second-probe")
        registry->register_block<Fenwa::Block>("Probe");
    if (entry == "first" || entry == "second")
        registry->register_block<Fenwa::Block>("From-" + entry);
    if (entry.starts_with("entry-"))
        registry->register_block<Fenwa::Block>("Early");
    if (entry == "entry-throws")
        throw std::runtime_error("no licence");
    if (entry == "entry-aborts")
        std::abort();
    while (entry == "entry-hangs")
        pause();
    return 0;
}
