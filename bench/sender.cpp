// The service of a benchmark: a temperature controller whose sensor signals on order.
//
//     bench-sender ADDRESS
//
// Orders come on stdin, one a line. Each is answered with a line on stdout, "done", once the
// receiver, the last client that has registered, has handled all signals and answered a call that
// came behind them:
//
//     registered            waits for a client
//     read COUNT            waits until the sensor was read so often
//     owners COUNT          changes the owner of a name that nobody cares for
//     blast COUNT           signals as quickly as the bus takes them
//     pace COUNT PERIOD     one signal in each PERIOD microseconds
//     trips COUNT           a signal and a call, COUNT times: "MICROSECONDS … done"
#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include "camera/bus/names.hpp"
#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"

namespace {

using common::check;
using Clock = std::chrono::steady_clock;

constexpr camera::BusObject controller = camera::temperature_controller;
constexpr std::int32_t signal_id = 3;
/// Signals before sd-bus is made to write them, so that its queue stays short.
constexpr int portion = 100;

class Sender {
  public:
    explicit Sender(const std::string& address)
        : bus_(common::open_bus(address, std::chrono::seconds(10))) {
        check(sd_bus_add_object_vtable(bus_.get(), object_.out(), controller.path,
                                       controller.interface, vtable_, this),
              "cannot export the object");
        common::own_name(*bus_, controller.name);
    }

    void wait_for_receiver() {
        serve_until([this] { return !receiver_.empty(); });
    }

    void wait_for_readings(int count) {
        serve_until([this, count] { return readings_ >= count; });
        wait_until_handled();
    }

    void change_owners(int count) {
        for (int i = 0; i < count; ++i) {
            if (i % 2 == 0)
                common::own_name(*bus_, "com.tarlo.Elsewhere");
            else
                check(sd_bus_release_name(bus_.get(), "com.tarlo.Elsewhere"), "cannot release");
        }
        wait_until_handled();
    }

    void blast(int count) {
        for (int i = 0; i < count; ++i) {
            signal();
            if (i % portion == 0)
                check(sd_bus_flush(bus_.get()), "cannot send");
        }
        wait_until_handled();
    }

    void pace(int count, std::chrono::microseconds period) {
        const auto begin = Clock::now();
        for (int i = 0; i < count; ++i) {
            signal();
            check(sd_bus_flush(bus_.get()), "cannot send");
            std::this_thread::sleep_until(begin + (i + 1) * period);
        }
        wait_until_handled();
    }

    std::string trips(int count) {
        std::ostringstream times;
        for (int i = 0; i < count; ++i) {
            const auto begin = Clock::now();
            signal();
            wait_until_handled();
            times << std::chrono::duration<double, std::micro>(Clock::now() - begin).count() << ' ';
        }
        return times.str();
    }

  private:
    template <class Done>
    void serve_until(Done&& is_done) {
        while (!is_done()) {
            if (check(sd_bus_process(bus_.get(), nullptr), "cannot serve") == 0)
                check(sd_bus_wait(bus_.get(), UINT64_MAX), "cannot wait");
        }
    }

    void signal() {
        value_ = value_ == 40.0 ? 50.5 : 40.0;
        check(sd_bus_emit_signal(bus_.get(), controller.path, controller.interface,
                                 "TemperatureChangeSignal", "id", signal_id, value_),
              "cannot send a signal");
    }

    /// The receiver's library answers this call itself, after all signals that came before it.
    void wait_until_handled() {
        check(sd_bus_call_method(bus_.get(), receiver_.c_str(), "/", "org.freedesktop.DBus.Peer",
                                 "Ping", nullptr, nullptr, ""),
              "the receiver does not answer");
        // A call of the receiver that is left open has its sd-bus watch a time-out.
        while (check(sd_bus_process(bus_.get(), nullptr), "cannot serve") > 0)
            continue;
    }

    int on_id(sd_bus_message& call) { return sd_bus_reply_method_return(&call, "i", 7); }
    int on_register(sd_bus_message& call) {
        receiver_ = sd_bus_message_get_sender(&call);
        return sd_bus_reply_method_return(&call, "i", signal_id);
    }
    int on_read(sd_bus_message& call) {
        ++readings_;
        return sd_bus_reply_method_return(&call, "d", value_);
    }

    static const sd_bus_vtable vtable_[];

    common::BusPtr bus_;
    common::SlotPtr object_;
    std::string receiver_;
    int readings_ = 0;
    double value_ = 36.5;
};

const sd_bus_vtable Sender::vtable_[] = {
    SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetTemperatureIdFromName", "s", "i", common::callback<&Sender::on_id>,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("RegisterForTemperatureChangeSignal", "id", "i",
                  common::callback<&Sender::on_register>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("GetTemperature", "is", "d", common::callback<&Sender::on_read>,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL("TemperatureChangeSignal", "id", 0),
    SD_BUS_VTABLE_END,
};

void serve(Sender& sender) {
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string order;
        int count = 0;
        std::int64_t period = 0;
        words >> order >> count >> period;
        if (order == "registered")
            sender.wait_for_receiver();
        else if (order == "read")
            sender.wait_for_readings(count);
        else if (order == "owners")
            sender.change_owners(count);
        else if (order == "blast")
            sender.blast(count);
        else if (order == "pace")
            sender.pace(count, std::chrono::microseconds(period));
        else if (order == "trips")
            std::cout << sender.trips(count);
        else
            throw std::runtime_error("no such order: " + line);
        std::cout << "done" << std::endl;
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc != 2)
            throw std::runtime_error("usage: bench-sender ADDRESS");
        Sender sender(argv[1]);
        std::cout << "ready" << std::endl;
        serve(sender);
    } catch (const std::exception& error) {
        std::cerr << "bench-sender: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
