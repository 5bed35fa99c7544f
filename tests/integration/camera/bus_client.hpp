#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "camera/bus/names.hpp"
#include "common/bus/bus.hpp"

namespace test {

/// A client of one of the camera's services that writes down what it gets.
class BusClient {
  public:
    /// A client of the temperature controller, or of another service.
    explicit BusClient(const std::string& address,
                       const camera::BusObject& service = camera::temperature_controller);

    [[nodiscard]] sd_bus* bus() const { return bus_.get(); }
    [[nodiscard]] std::string unique_name() const;

    /// Calls the service and waits for the answer: `(3)`, or `NAME: MESSAGE` of an error.
    template <class... Arguments>
    std::string call(const char* member, const char* types, Arguments... arguments) {
        return call(new_call(member, types, arguments...), std::chrono::seconds(20));
    }
    std::string call(const common::MessagePtr& message, std::chrono::milliseconds limit);

    /// Calls without waiting; the answer becomes a line of `heard()`: `MEMBER answers (3)`.
    template <class... Arguments>
    void send(const char* member, const char* types, Arguments... arguments) {
        send(new_call(member, types, arguments...), member);
    }

    /// A call of the service that is not sent yet.
    template <class... Arguments>
    [[nodiscard]] common::MessagePtr new_call(const char* member, const char* types,
                                              Arguments... arguments) const {
        common::MessagePtr message = new_call(member);
        common::check(sd_bus_message_append(message.get(), types, arguments...), "append");
        return message;
    }

    /// From here on the signals of the service's object, and the owners of its name, become lines
    /// of `heard()`: `TemperatureSignal(1)`, `owner :1.1 -> none`.
    void listen();
    /// From here on the owners of this name become lines.
    void watch_owner(const std::string& name);

    /// Serves the connection until so many lines were heard.
    /// @throws std::runtime_error with the lines when they do not come within 20 s.
    const std::vector<std::string>& wait_for(std::size_t lines);
    /// All that was heard so far.
    [[nodiscard]] const std::vector<std::string>& heard() const { return heard_; }
    void forget() { heard_.clear(); }

  protected:
    void hear(std::string line) { heard_.push_back(std::move(line)); }

  private:
    struct Pending {
        void on_answer(sd_bus_message& message);

        BusClient* client;
        std::string member;
        common::SlotPtr slot;
    };

    [[nodiscard]] common::MessagePtr new_call(const char* member) const;
    void send(const common::MessagePtr& message, const char* member);
    void on_signal(sd_bus_message& message);
    void on_owner(sd_bus_message& message);

    camera::BusObject service_;
    common::BusPtr bus_;
    std::vector<std::string> heard_;
    std::vector<common::SlotPtr> matches_;
    std::vector<std::unique_ptr<Pending>> pending_;
};

}  // namespace test
