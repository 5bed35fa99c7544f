#pragma once

#include <systemd/sd-bus.h>

#include <cstdarg>
#include <deque>
#include <exception>
#include <string>
#include <utility>

#include "fenwa/tools.hpp"
#include "tests/support/bus_messages.hpp"
#include "tests/support/sdbus_interception.hpp"

namespace support {

/// Tools over a given connection whose blocking operations end as the test has said beforehand.
///
/// Each one that was foreseen is noted in the interception's journal, among what is sent:
/// "blocking call DESTINATION PATH INTERFACE MEMBER(ARGUMENTS)" or
/// "blocking read DESTINATION PATH INTERFACE PROPERTY as TYPE". One that was not foreseen is a
/// failure of the test and returns without a reply; so is what was foreseen and never happened.
class FakeTools final : public Fenwa::SDBusTools {
  public:
    FakeTools(sd_bus* bus, Interception& interception) : bus_(bus), interception_(&interception) {}
    ~FakeTools() override;

    /// Hands out this connection from now on, which need not be one: nothing is sent on it.
    void use_bus(sd_bus* bus) { bus_ = bus; }

    // How the next blocking operation ends that nothing has been said about yet.

    /// With this reply, which the caller then owns. Where a property is read, a message that begins
    /// with the value stands for one that is positioned inside its variant.
    void reply_next(Message reply) { endings_.push_back({std::move(reply), nullptr}); }
    /// With an exception, such as `Fenwa::SDBusError`, after a reply where one is given.
    template <class Exception>
    void throw_next(Exception exception, Message reply = Message(nullptr)) {
        endings_.push_back({std::move(reply), std::make_exception_ptr(std::move(exception))});
    }
    /// Without a reply, and without an exception.
    void return_next() { reply_next(Message(nullptr)); }

    void call_method(const char* destination, const char* path, const char* interface,
                     const char* member, sd_bus_message** reply, const char* types, ...) override;
    void get_property(const char* destination, const char* path, const char* interface,
                      const char* member, sd_bus_message** reply, const char* type) override;
    sd_bus* get_bus() override { return bus_; }

  private:
    struct Ending {
        Message reply;
        std::exception_ptr exception;
    };

    void end(const std::string& operation, const std::string& name, sd_bus_message** reply);

    sd_bus* bus_;
    Interception* interception_;
    std::deque<Ending> endings_;
};

}  // namespace support
