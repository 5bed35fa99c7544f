#include "tests/integration/host/control_client.hpp"

#include <cstdint>
#include <sstream>
#include <stdexcept>

#include "common/bus/callback.hpp"

namespace test {
namespace {

using common::check;

constexpr const char* path = "/com/tarlo/Fenwa/Host1";
constexpr const char* interface = "com.tarlo.Fenwa.Host1";

/// Reads the next argument, a variant: its type and its value.
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

common::MessagePtr ControlClient::new_call(const char* method) const {
    common::MessagePtr call;
    check(sd_bus_message_new_method_call(&bus(), call.out(), destination_.c_str(), path, interface,
                                         method),
          "new call");
    return call;
}

std::string ControlClient::send(sd_bus_message& message) const {
    common::BusError error;
    common::MessagePtr answer;
    const int r = sd_bus_call(&bus(), &message, 20'000'000, &error, answer.out());
    if (r < 0) {
        const std::string prefix = std::string(interface) + ".Error.";
        const std::string text = error.text(r);
        return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
    }
    const std::string signature = sd_bus_message_get_signature(answer.get(), 1);
    if (signature == "v")
        return variant(answer.get());
    return signature == "s" ? common::read_string(*answer) : "ok";
}

void ControlClient::overhear() {
    check(sd_bus_match_signal(&bus(), nullptr, destination_.c_str(), path, interface,
                              "OutputChanged", common::callback<&ControlClient::on_change>, this),
          "match");
}

void ControlClient::listen() {
    overhear();
    if (const std::string answer = call("Subscribe", ""); answer != "ok")
        throw std::runtime_error(answer);
}

const std::vector<std::string>& ControlClient::changes(std::size_t count) {
    serve_until([this, count] { return changes_.size() >= count; });
    return changes_;
}

void ControlClient::on_change(sd_bus_message& signal) {
    const std::string port = common::read_string(signal);
    changes_.push_back(port + ' ' + variant(&signal));
}

}  // namespace test
