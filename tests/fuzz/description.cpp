// What a host says of its graph, as `fenwa graph --control`, `watch` and `status` read it: another
// version of the program may have written it, or another program.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string_view>

#include "common/text/terminal.hpp"
#include "host/cli/described_ports.hpp"
#include "host/draw/diagram.hpp"
#include "host/draw/dot.hpp"
#include "host/output/status_text.hpp"
#include "host/value/port_value.hpp"

namespace {

/// What the commands do about a description of another form: they refuse it.
template <class Read>
void read_or_refuse(Read read) {
    try {
        read();
    } catch (const common::JsonError&) {
    } catch (const common::Json::exception&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    common::Json description;
    read_or_refuse([&] {
        description = common::parse_json(std::string(reinterpret_cast<const char*>(data), size),
                                         "the answer");
    });
    read_or_refuse(
        [&] { (void)host::to_dot(host::make_diagram(description, host::DiagramValues::shown)); });
    read_or_refuse([&] {
        for (const host::DescribedPort& port :
             host::ports_in(description, {"inputs", "terminated_inputs", "outputs"}))
            (void)host::value_from_json(host::datatype_named(port.type), *port.value);
    });
    read_or_refuse([&] {
        const common::Json status = host::status_in(description);
        (void)common::json_line(status);
        (void)host::status_as_text(status, common::Palette(false));
    });
    return 0;
}
