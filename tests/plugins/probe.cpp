#include "tests/plugins/probe.hpp"

int lib_register_cpp(Fenwa::IRegistry* registry) {
    probe::register_life_blocks(*registry);
    probe::register_port_blocks(*registry);
    probe::register_settings_blocks(*registry);
    probe::register_setup_blocks(*registry);
    probe::register_bus_blocks(*registry);
    probe::register_thread_blocks(*registry);
    probe::register_log_blocks(*registry);
    probe::register_stop_blocks(*registry);
    return 0;
}
