// The least that hears the signal with sdbus-c++ and its own loop.
#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <iostream>

static double temperature;

int main(int /*argc*/, char** argv) {
    const char* const service = "com.tarlo.TemperatureController";
    try {
        const auto bus = sdbus::createSessionBusConnectionWithAddress(argv[1]);
        const auto controller =
            sdbus::createProxy(*bus, service, "/com/tarlo/TemperatureController");
        controller->uponSignal("TemperatureChangeSignal")
            .onInterface(service)
            .call([](std::int32_t /*id*/, double value) { temperature = value; });
        controller->finishRegistration();
        std::int32_t signal_id = 0;
        controller->callMethod("RegisterForTemperatureChangeSignal")
            .onInterface(service)
            .withArguments(std::int32_t{7}, 0.5)
            .storeResultsTo(signal_id);
        bus->enterEventLoop();
    } catch (const sdbus::Error& error) {
        std::cerr << "bench-sdbus-cpp: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
