#include "host/cli/control.hpp"

#include "host/output/standard_output.hpp"
#include "host/value/bus_value.hpp"
#include "host/value/value_text.hpp"

namespace host {
namespace {

using common::check;

PortValue ask_for(const ControlClient& host, const std::string& port) {
    const common::MessagePtr call = host.new_call("Read");
    ControlClient::append(*call, port);
    const common::MessagePtr reply = host.send(call);
    PortValue value = read_variant(*reply);
    if (std::holds_alternative<std::monostate>(value))
        throw common::Failure(common::ExitCode::unavailable,
                              "the host gives '" + port + "' a value of an unknown type");
    return value;
}

}  // namespace

common::ExitCode read_port_of_host(const ControlTarget& target, const std::string& port,
                                   common::ColorChoice color) {
    open_closed_streams();
    StandardOutput out([] {});
    const common::Palette palette(common::use_color(color, stdout));
    std::string line(palette.bold);
    line.append(to_text(ask_for(ControlClient(target), port))).append(palette.reset);
    out.write(line + '\n');
    return code_after(out, common::ExitCode::done);
}

void write_port_of_host(const ControlTarget& target, const std::string& port,
                        const std::string& value) {
    const ControlClient host(target);
    const PortValue like = ask_for(host, port);
    const common::MessagePtr call = host.new_call("Write");
    ControlClient::append(*call, port);
    // The host says that a timer source cannot be written, whatever it is given.
    const bool is_tick = std::holds_alternative<Fenwa::datatype_timersource>(like);
    check(append_variant(*call, is_tick ? like : from_text(value, like)), "cannot append a value");
    (void)host.send(call);
}

}  // namespace host
