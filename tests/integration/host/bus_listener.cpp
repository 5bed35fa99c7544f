#include "tests/integration/host/bus_listener.hpp"

#include "common/bus/callback.hpp"

namespace test {

using common::check;

std::string BusListener::echo(const std::string& destination, const std::string& path,
                              const std::string& text) {
    send_echo(destination, path, text);
    return answer();
}

void BusListener::send_echo(const std::string& destination, const std::string& path,
                            const std::string& text) {
    answer_.clear();
    check(sd_bus_call_method_async(
              &bus(), nullptr, destination.c_str(), path.c_str(), "com.example.Echo1", "Echo",
              common::callback<&BusListener::on_answer>, this, "s", text.c_str()),
          "call");
    check(sd_bus_flush(&bus()), "flush");
}

std::string BusListener::answer() {
    serve_until([this] { return !answer_.empty(); });
    return answer_;
}

bool BusListener::has_owner(const std::string& name) {
    common::BusError error;
    return sd_bus_call_method(&bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                              "org.freedesktop.DBus", "GetNameOwner", &error, nullptr, "s",
                              name.c_str()) >= 0;
}

bool BusListener::loses_owner(const std::string& name) {
    serve_until([&] { return !has_owner(name); });
    return !has_owner(name);
}

void BusListener::listen_for_farewells() {
    check(
        sd_bus_match_signal(&bus(), nullptr, nullptr, "/com/example/Leaver", "com.example.Leaver1",
                            "Farewell", common::callback<&BusListener::on_farewell>, this),
        "match");
}

const std::vector<std::string>& BusListener::farewells(std::size_t count) {
    serve_until([this, count] { return farewells_.size() >= count; });
    return farewells_;
}

void BusListener::on_farewell(sd_bus_message& signal) {
    const std::string block = common::read_string(signal);
    farewells_.push_back(block + ' ' + common::read_string(signal));
}

void BusListener::on_answer(sd_bus_message& reply) {
    const sd_bus_error* const error = sd_bus_message_get_error(&reply);
    answer_ = error != nullptr ? error->name : common::read_string(reply);
}

}  // namespace test
