#pragma once

#include "tests/integration/blocks/scene.hpp"

namespace test {

/// A graph of one PowerConsumer, which a timer runs for the first time.
inline std::string consumer_with(const std::string& keys, const std::string& bus_name) {
    return "[bus]\nnames = [\"" + bus_name +
           "\"]\n[blocks.tick]\ntype = \"Timer\"\ninterval = 100\n"
           "[blocks.consumer]\ntype = \"PowerConsumer\"\n" +
           keys + "[[connections]]\nfrom = \"tick.out\"\nto = \"consumer.timer_in\"\n";
}

/// A PowerConsumer of channel 0 that asks for 4.5, of a budget of 20.
class ConsumerScene : public BlockScene {
  protected:
    ConsumerScene()
        : BlockScene({"com.tarlo.PowerControl.Consumer", "Register",
                      consumer_with("power = 4.5\n", "com.tarlo.Vipd.ch0")}) {}

    /// What the block did, without the ticks of its timer.
    [[nodiscard]] Lines block_events() const {
        Lines lines = events();
        std::erase_if(lines, [](const std::string& line) {
            return line.find(R"("block":"tick")") != std::string::npos;
        });
        return lines;
    }
    /// The values that the block published.
    [[nodiscard]] Lines grants() const {
        Lines lines = block_events();
        std::erase_if(lines, [](const std::string& line) {
            return !line.starts_with(R"({"event":"output")");
        });
        return lines;
    }
};

// The pieces that the traffic of the consumer is made of.

/// The host connects, owns the name of the channel, and the block runs for the first time.
inline Lines consumer_starts(const std::string& bus_name = "com.tarlo.Vipd.ch0") {
    return host_connects +
           Lines{"client calls daemon: RequestName(\"" + bus_name + "\", 4)",
                 "daemon signals client: NameAcquired(\"" + bus_name + "\")",
                 "daemon replies to client: (1)"} +
           adds_match(owner_rule);
}
inline const std::string register_call =
    R"(client calls service: Register("vipd0", false, "com.tarlo.Vipd.ch0", )"
    R"("/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer"))";
inline const std::string request_call =
    R"(client calls service: RequestPower("vipd0", "control", 4.5))";
inline const Lines registers{register_call, "service replies to client: ()"};

/// `service` answers a request and grants some power.
inline Lines granted(const std::string& power, const std::string& service = "service") {
    return {service + " replies to client: ()", service + " calls client: SetPower(" + power + ")",
            "client replies to " + service + ": ()"};
}

/// Where nobody unregisters the match any more, the bus does.
inline Lines consumer_leaves(const std::string& bus_name = "com.tarlo.Vipd.ch0") {
    return removes_match(owner_rule) +
           Lines{R"(client calls service: Unregister("vipd0"))",
                 "daemon signals client: NameLost(\"" + bus_name + "\")"} +
           host_leaves;
}

inline const std::string adding_log =
    log_event(4,
              "Adding dbus interface 'com.tarlo.Vipd.PowerConsumer' on "
              "'/com/tarlo/Vipd/PowerConsumer");

inline std::string grant_event(const std::string& power) {
    return output_event("consumer.power_out", "float", power);
}

}  // namespace test
