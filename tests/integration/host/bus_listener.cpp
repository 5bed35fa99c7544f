#include "tests/integration/host/bus_listener.hpp"

#include <chrono>

namespace test {

using common::check;

BusListener::BusListener(const std::string& address)
    : bus_(common::open_bus(address, std::chrono::seconds(10))) {}

template <class Done>
void BusListener::serve_until(Done done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        if (check(sd_bus_process(bus_.get(), nullptr), "process") == 0)
            check(sd_bus_wait(bus_.get(), 20'000), "wait");
    }
}

common::MessagePtr BusListener::echo_call(const std::string& destination, const std::string& path,
                                          const std::string& text) {
    sd_bus_message* call = nullptr;
    check(sd_bus_message_new_method_call(bus_.get(), &call, destination.c_str(), path.c_str(),
                                         "com.example.Echo1", "Echo"),
          "new call");
    common::MessagePtr guard(call);
    check(sd_bus_message_append(call, "s", text.c_str()), "append");
    return guard;
}

std::string BusListener::echo(const std::string& destination, const std::string& path,
                              const std::string& text) {
    send_echo(destination, path, text);
    return answer();
}

void BusListener::send_echo(const std::string& destination, const std::string& path,
                            const std::string& text) {
    answer_.clear();
    check(sd_bus_call_async(bus_.get(), nullptr, echo_call(destination, path, text).get(),
                            on_answer, this, 0),
          "call");
    check(sd_bus_flush(bus_.get()), "flush");
}

std::string BusListener::answer() {
    serve_until([this] { return !answer_.empty(); });
    return answer_;
}

void BusListener::own(const std::string& name) {
    common::own_name(*bus_, name);
}

bool BusListener::has_owner(const std::string& name) {
    common::BusError error;
    const int r = sd_bus_call_method(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                     "org.freedesktop.DBus", "GetNameOwner", &error, nullptr, "s",
                                     name.c_str());
    return r >= 0;
}

bool BusListener::loses_owner(const std::string& name) {
    serve_until([&] { return !has_owner(name); });
    return !has_owner(name);
}

void BusListener::listen_for_farewells() {
    check(sd_bus_match_signal(bus_.get(), nullptr, nullptr, "/com/example/Leaver",
                              "com.example.Leaver1", "Farewell", on_farewell, this),
          "match");
}

const std::vector<std::string>& BusListener::farewells(std::size_t count) {
    serve_until([this, count] { return farewells_.size() >= count; });
    return farewells_;
}

int BusListener::on_farewell(sd_bus_message* signal, void* userdata, sd_bus_error* /*error*/) {
    const char* block = nullptr;
    const char* phase = nullptr;
    check(sd_bus_message_read(signal, "ss", &block, &phase), "read");
    static_cast<BusListener*>(userdata)->farewells_.push_back(std::string(block) + ' ' + phase);
    return 0;
}

int BusListener::on_answer(sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    const char* text = nullptr;
    if (const sd_bus_error* error = sd_bus_message_get_error(reply))
        text = error->name;
    else
        check(sd_bus_message_read(reply, "s", &text), "read");
    static_cast<BusListener*>(userdata)->answer_ = text;
    return 0;
}

}  // namespace test
