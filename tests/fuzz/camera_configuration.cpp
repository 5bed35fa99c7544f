// The configuration of a simulated camera; a camera is built from one that is right.

#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/fuzz/camera_without_bus.hpp"
#include "tests/fuzz/memory_file.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryFile file(data, size);
    common::Diagnostics diagnostics(file.path());
    const camera::Configuration configuration =
        camera::read_configuration(file.path(), diagnostics);
    std::ostringstream mistakes;
    diagnostics.print(mistakes, true);
    if (diagnostics.errors() == 0)
        (void)fuzz::CameraWithoutBus(configuration).camera.show();
    return 0;
}
