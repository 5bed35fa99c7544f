#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <string>

#include "camera/bus/names.hpp"
#include "common/bus/bus.hpp"

namespace test {

/// A client that sends as quickly as the daemon reads: it waits for the daemon and for nothing
/// else.
class Sender {
  public:
    explicit Sender(const std::string& address)
        : bus_(common::open_bus(address, std::chrono::seconds(20))) {}

    [[nodiscard]] sd_bus* bus() const { return bus_.get(); }

    /// Calls `send` for each number below `count`, and waits until the daemon has read all.
    template <class Send>
    void pour(int count, const Send& send) {
        constexpr int portion = 100;  // between two flushes, so that sd-bus's queue stays short
        for (int i = 0; i < count; ++i) {
            send(i);
            if (i % portion == portion - 1)
                common::check(sd_bus_flush(bus()), "flush");
        }
        common::check(sd_bus_flush(bus()), "flush");
    }
    /// Sends a call that wants no answer.
    template <class... Arguments>
    void send_call(const camera::BusObject& to, const char* member, const char* types,
                   Arguments... arguments) {
        common::MessagePtr call;
        common::check(sd_bus_message_new_method_call(bus(), call.out(), to.name, to.path,
                                                     to.interface, member),
                      "a call");
        common::check(sd_bus_message_append(call.get(), types, arguments...), "its arguments");
        common::check(sd_bus_message_set_expect_reply(call.get(), 0), "no reply");
        common::check(sd_bus_send(bus(), call.get(), nullptr), "send");
    }
    /// Lets a name that concerns nobody come and go so many times.
    void change_owners(int times) {
        constexpr camera::BusObject daemon{"org.freedesktop.DBus", "/org/freedesktop/DBus",
                                           "org.freedesktop.DBus"};
        constexpr const char* name = "com.tarlo.Elsewhere";
        pour(times, [&](int) {
            send_call(daemon, "RequestName", "su", name, 0U);
            send_call(daemon, "ReleaseName", "s", name);
        });
    }
    /// Returns once this client has served everything that was sent to it before: sd-bus answers.
    void wait_for(const char* client) {
        common::check(sd_bus_call_method(bus(), client, "/", "org.freedesktop.DBus.Peer", "Ping",
                                         nullptr, nullptr, ""),
                      "a client that answers");
        // The daemon tells this client of each name that it gains and loses. sd-bus keeps that
        // until it is served, and takes nothing any more from 65,536 messages on.
        while (common::check(sd_bus_process(bus(), nullptr), "what has come") > 0) {
        }
    }

  private:
    common::BusPtr bus_;
};

}  // namespace test
