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
        : BlockScene({"power-consumer", "com.tarlo.PowerControl.Consumer", "Register",
                      consumer_with("power = 4.5\n", "com.tarlo.Vipd.ch0")}) {}

    /// Starts the host, opening the scene before, and waits until the consumer has its power.
    void start_granted(Setting setting) {
        start(std::move(setting));
        wait_for_output("4.5");
    }
    void start_granted() { start_granted(Setting{}); }
    void set_budget(const std::string& power) { set("power.budget", power); }

    /// The events of the block, without the ticks of its timer.
    [[nodiscard]] Lines block_events() const {
        Lines lines = events();
        std::erase_if(lines, [](const std::string& line) {
            return line.find(R"("block":"tick")") != std::string::npos;
        });
        return lines;
    }
    /// The values that the block published.
    [[nodiscard]] Lines grants() const { return with(R"({"event":"output")", block_events()); }
};

// The pieces that the traffic of the consumer is made of.

/// The host connects, owns the name of the channel, and the block runs for the first time.
inline const Lines consumer_starts =
    host_connects +
    Lines{R"(client calls daemon: RequestName("com.tarlo.Vipd.ch0", 4))",
          R"(daemon signals client: NameAcquired("com.tarlo.Vipd.ch0"))",
          "daemon replies to client: (1)"} +
    adds_match(owner_rule);
inline const std::string register_call =
    R"(client calls service: Register("vipd0", false, "com.tarlo.Vipd.ch0", )"
    R"("/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer"))";
inline const std::string request_call =
    R"(client calls service: RequestPower("vipd0", "control", 4.5))";
inline const Lines registers{register_call, "service replies to client: ()"};

/// `service` tells the client its share, and answers a request before that.
inline Lines tells(const std::string& power, const std::string& service = "service") {
    return {service + " calls client: SetPower(" + power + ")",
            "client replies to " + service + ": ()"};
}
inline Lines granted(const std::string& power, const std::string& service = "service") {
    return Lines{service + " replies to client: ()"} + tells(power, service);
}

inline const std::string unregister_call = R"(client calls service: Unregister("vipd0"))";
inline const Lines channel_leaves =
    Lines{R"(daemon signals client: NameLost("com.tarlo.Vipd.ch0"))"} + host_leaves;
/// The host removes its match, and the bus the rest.
inline const Lines consumer_leaves =
    removes_match(owner_rule) + Lines{unregister_call} + channel_leaves;

inline const std::string adding_log =
    log_event(4,
              "Adding dbus interface 'com.tarlo.Vipd.PowerConsumer' on "
              "'/com/tarlo/Vipd/PowerConsumer");

/// The log line of an owner change that begins so.
inline auto owner_log(const std::string& change) {
    return HasSubstr("Owner of 'com.tarlo.PowerControl.Consumer' changed from " + change);
}

inline std::string grant_event(const std::string& power) {
    return output_event("consumer.power_out", "float", power);
}

}  // namespace test
