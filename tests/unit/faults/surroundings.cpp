#include "tests/unit/faults/surroundings.hpp"

#include <memory>
#include <string>

#include "fenwa/testkit/block_driver.hpp"
#include "framework/shared/host_access.hpp"
#include "tests/support/layout_probe.hpp"
#include "tests/unit/block_fixture.hpp"
#include "tests/unit/faults/life.hpp"

namespace faults {

using blocks::LayoutProbe;
using support::Messages;
using support::reply_of;

namespace {

template <class T>
std::unique_ptr<Fenwa::Block> build(const Fenwa::InitTools& tools,
                                    const Fenwa::BlockConfiguration& config) {
    return Fenwa::testkit::build_block<T>(tools, std::string("block"), config);
}

// The services.

constexpr const char* controller = "com.tarlo.TemperatureController";
constexpr const char* controller_path = "/com/tarlo/TemperatureController";

}  // namespace

Surroundings reader() {
    Surroundings around;
    around.build = build<blocks::TemperatureReader>;
    around.settings = {{"sensor_name", {"main"}}, {"delta_chg", 0.5}};
    around.replies = {{"GetNameOwner", reply_of("s", ":1.5")},
                      {"GetTemperatureIdFromName", reply_of("i", 3)},
                      {"RegisterForTemperatureChangeSignal", reply_of("i", 12)},
                      {"GetTemperature", reply_of("d", 36.5)}};
    around.service = controller;
    around.traffic = [](Life& life, int turn) {
        life.signal("TemperatureChangeSignal",
                    life.messages().signal(controller_path, controller, "TemperatureChangeSignal",
                                           "id", 12, 40.0 + turn));
    };
    return around;
}

Surroundings temperature_monitor() {
    Surroundings around;
    around.build = build<blocks::TemperatureMonitor>;
    around.settings = {{"sensor_name", {"main"}}};
    // The ids of the limits: low_on, high_on, low_off, high_off.
    around.replies = {{"GetTemperatureIdFromName", reply_of("i", 3)},
                      {"GetTemperature", reply_of("d", 20.0)},
                      {"RegisterForTemperatureSignal", [next = 0](Messages& messages) mutable {
                           return messages.reply("ib", 10 + next++ % 4, 0);
                       }}};
    around.service = controller;
    // Too hot, and as it should be, in turn.
    around.traffic = [](Life& life, int turn) {
        life.signal("TemperatureSignal",
                    life.messages().signal(controller_path, controller, "TemperatureSignal", "i",
                                           turn % 2 == 0 ? 13 : 10));
    };
    return around;
}

Surroundings consumer() {
    Surroundings around;
    around.build = build<blocks::PowerConsumer>;
    around.settings = {{"power", 12.5}};
    around.replies = {{"Register", reply_of("")}, {"RequestPower", reply_of("")}};
    around.service = "com.tarlo.PowerControl.Consumer";
    around.is_ticked = true;
    around.traffic = [](Life& life, int turn) {
        life.call(
            LayoutProbe::exported_methods()[1].x.method.handler,
            life.messages().call("/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer",
                                 "SetPower", "d", 5.0 + turn));
    };
    return around;
}

Surroundings power_monitor() {
    Surroundings around;
    around.build = build<blocks::PowerMonitor>;
    around.settings = {{"requested_power", 5.0}};
    around.replies = {{"PowerReceived", reply_of("d", 12.0)}, {"Get", reply_of("v", "d", 12.0)}};
    // Too little, and enough, in turn.
    around.traffic = [](Life& life, int turn) {
        life.signal(
            "PropertiesChanged",
            life.messages().signal("/com/tarlo/PowerControl/Status",
                                   "org.freedesktop.DBus.Properties", "PropertiesChanged",
                                   "sa{sv}as", "com.tarlo.PowerControl.Status", 2, "PowerUsed", "d",
                                   1.0, "PowerReceived", "d", turn % 2 == 0 ? 3.0 : 12.0, 0));
    };
    return around;
}

Surroundings controls() {
    Surroundings around;
    around.build = build<blocks::OnScreenControls>;
    around.settings = {{"channel", 0}, {"wdr", true}};
    around.replies = {{"GetNameOwner", reply_of("s", ":1.5")},
                      {"ListAddedFeatures", reply_of("a(sas)", 1, "WDR0", 1, "de")},
                      {"AddFeatures", reply_of("")},
                      {"RemoveFeatures", reply_of("")}};
    around.service = "com.tarlo.Onscreencontrols1";
    return around;
}

Surroundings controls_without_buttons() {
    Surroundings around = controls();
    around.settings = {{"channel", 0}};
    return around;
}

Surroundings overlay() {
    Surroundings around;
    around.build = build<blocks::PrioritizedTextOverlaySetter>;
    around.settings = {{"prio_text_overlay", {"Smoke"}}};
    around.replies = {{"Set", reply_of("")}};
    return around;
}

Surroundings video() {
    Surroundings around;
    around.build = build<blocks::VideoReady>;
    around.settings = {{"channel", 0}};
    around.replies = {{"GetUnitFileState", reply_of("s", "enabled")},
                      {"SignalVideoReady", reply_of("")}};
    around.traffic = [](Life& life, int /*turn*/) {
        Fenwa::HostAccess::notify(*life.block().get_inport("rotation_vip0_in"), life.block());
    };
    return around;
}

}  // namespace faults
