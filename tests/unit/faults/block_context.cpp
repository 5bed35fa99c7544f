#include "tests/unit/faults/block_context.hpp"

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

BlockContext reader() {
    BlockContext context;
    context.build = build<blocks::TemperatureReader>;
    context.settings = {{"sensor_name", {"main"}}, {"delta_chg", 0.5}};
    context.replies = {{"GetNameOwner", reply_of("s", ":1.5")},
                       {"GetTemperatureIdFromName", reply_of("i", 3)},
                       {"RegisterForTemperatureChangeSignal", reply_of("i", 12)},
                       {"GetTemperature", reply_of("d", 36.5)}};
    context.service = controller;
    context.traffic = [](Life& life, int turn) {
        life.signal("TemperatureChangeSignal",
                    life.messages().signal(controller_path, controller, "TemperatureChangeSignal",
                                           "id", 12, 40.0 + turn));
    };
    return context;
}

BlockContext temperature_monitor() {
    BlockContext context;
    context.build = build<blocks::TemperatureMonitor>;
    context.settings = {{"sensor_name", {"main"}}};
    // The ids of the limits: low_on, high_on, low_off, high_off.
    context.replies = {{"GetTemperatureIdFromName", reply_of("i", 3)},
                       {"GetTemperature", reply_of("d", 20.0)},
                       {"RegisterForTemperatureSignal", [next = 0](Messages& messages) mutable {
                            return messages.reply("ib", 10 + next++ % 4, 0);
                        }}};
    context.service = controller;
    // Too hot, and as it should be, in turn.
    context.traffic = [](Life& life, int turn) {
        life.signal("TemperatureSignal",
                    life.messages().signal(controller_path, controller, "TemperatureSignal", "i",
                                           turn % 2 == 0 ? 13 : 10));
    };
    return context;
}

BlockContext consumer() {
    BlockContext context;
    context.build = build<blocks::PowerConsumer>;
    context.settings = {{"power", 12.5}};
    context.replies = {{"Register", reply_of("")}, {"RequestPower", reply_of("")}};
    context.service = "com.tarlo.PowerControl.Consumer";
    context.is_ticked = true;
    context.traffic = [](Life& life, int turn) {
        life.call(
            LayoutProbe::exported_methods()[1].x.method.handler,
            life.messages().call("/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer",
                                 "SetPower", "d", 5.0 + turn));
    };
    return context;
}

BlockContext power_monitor() {
    BlockContext context;
    context.build = build<blocks::PowerMonitor>;
    context.settings = {{"requested_power", 5.0}};
    context.replies = {{"PowerReceived", reply_of("d", 12.0)}, {"Get", reply_of("v", "d", 12.0)}};
    // Too little, and enough, in turn.
    context.traffic = [](Life& life, int turn) {
        life.signal(
            "PropertiesChanged",
            life.messages().signal("/com/tarlo/PowerControl/Status",
                                   "org.freedesktop.DBus.Properties", "PropertiesChanged",
                                   "sa{sv}as", "com.tarlo.PowerControl.Status", 2, "PowerUsed", "d",
                                   1.0, "PowerReceived", "d", turn % 2 == 0 ? 3.0 : 12.0, 0));
    };
    return context;
}

BlockContext controls() {
    BlockContext context;
    context.build = build<blocks::OnScreenControls>;
    context.settings = {{"channel", 0}, {"wdr", true}};
    context.replies = {{"GetNameOwner", reply_of("s", ":1.5")},
                       {"ListAddedFeatures", reply_of("a(sas)", 1, "WDR0", 1, "de")},
                       {"AddFeatures", reply_of("")},
                       {"RemoveFeatures", reply_of("")}};
    context.service = "com.tarlo.Onscreencontrols1";
    return context;
}

BlockContext controls_without_buttons() {
    BlockContext context = controls();
    context.settings = {{"channel", 0}};
    return context;
}

BlockContext overlay() {
    BlockContext context;
    context.build = build<blocks::PrioritizedTextOverlaySetter>;
    context.settings = {{"prio_text_overlay", {"Smoke"}}};
    context.replies = {{"Set", reply_of("")}};
    return context;
}

BlockContext video() {
    BlockContext context;
    context.build = build<blocks::VideoReady>;
    context.settings = {{"channel", 0}};
    context.replies = {{"GetUnitFileState", reply_of("s", "enabled")},
                       {"SignalVideoReady", reply_of("")}};
    context.traffic = [](Life& life, int /*turn*/) {
        Fenwa::HostAccess::notify(*life.block().get_inport("rotation_vip0_in"), life.block());
    };
    return context;
}

}  // namespace faults
