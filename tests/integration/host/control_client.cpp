#include "tests/integration/host/control_client.hpp"

#include <chrono>
#include <cinttypes>
#include <sstream>

namespace test {
namespace {

using common::check;

constexpr const char* path = "/com/tarlo/Fenwa/Host1";
constexpr const char* interface = "com.tarlo.Fenwa.Host1";

/// The variant that stands next: its type and its value.
std::string variant(sd_bus_message* message) {
    const char* type = nullptr;
    check(sd_bus_message_peek_type(message, nullptr, &type), "peek");
    std::ostringstream text;
    text << std::boolalpha << type << ' ';
    const std::string held = type;
    if (held == "d") {
        double value = 0.0;
        check(sd_bus_message_read(message, "v", "d", &value), "read");
        text.precision(17);
        text << value;
    } else if (held == "i" || held == "b") {
        int value = 0;
        check(sd_bus_message_read(message, "v", type, &value), "read");
        held == "b" ? text << (value != 0) : text << value;
    } else if (held == "(tt)") {
        std::uint64_t ticks = 0;
        std::uint64_t period = 0;
        check(sd_bus_message_read(message, "v", "(tt)", &ticks, &period), "read");
        text << ticks << ' ' << period;
    }
    return text.str();
}

}  // namespace

ControlClient::ControlClient(const std::string& address, std::string destination)
    : destination_(std::move(destination)),
      bus_(common::open_bus(address, std::chrono::seconds(10))) {}

common::MessagePtr ControlClient::new_call(const char* method) const {
    sd_bus_message* call = nullptr;
    check(sd_bus_message_new_method_call(bus_.get(), &call, destination_.c_str(), path, interface,
                                         method),
          "new call");
    return common::MessagePtr(call);
}

std::string ControlClient::read(const std::string& port) const {
    return call("Read", "s", port.c_str());
}

std::string ControlClient::send(sd_bus_message& message) const {
    common::BusError error;
    sd_bus_message* answer = nullptr;
    const int r = sd_bus_call(bus_.get(), &message, 20'000'000, &error, &answer);
    const common::MessagePtr owned(answer);
    if (r < 0) {
        const std::string prefix = std::string(interface) + ".Error.";
        const std::string text = error.text(r);
        return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
    }
    const std::string signature = sd_bus_message_get_signature(answer, 1);
    if (signature == "v")
        return variant(answer);
    const char* text = "ok";
    if (signature == "s")
        check(sd_bus_message_read(answer, "s", &text), "read");
    return text;
}

void ControlClient::listen() {
    check(sd_bus_match_signal(bus_.get(), nullptr, destination_.c_str(), path, interface,
                              "OutputChanged", on_change, this),
          "match");
}

const std::vector<std::string>& ControlClient::changes(std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (changes_.size() < count && std::chrono::steady_clock::now() < deadline) {
        if (check(sd_bus_process(bus_.get(), nullptr), "process") == 0)
            check(sd_bus_wait(bus_.get(), 20'000), "wait");
    }
    return changes_;
}

int ControlClient::on_change(sd_bus_message* signal, void* userdata, sd_bus_error* /*error*/) {
    const char* port = nullptr;
    check(sd_bus_message_read(signal, "s", &port), "read");
    static_cast<ControlClient*>(userdata)->changes_.push_back(std::string(port) + ' ' +
                                                              variant(signal));
    return 0;
}

}  // namespace test
