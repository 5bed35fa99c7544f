#include "common/bus/private_bus_files.hpp"

#include <array>
#include <cstdio>

#include "common/text/xml_text.hpp"

namespace common {
namespace {

/// One word for the daemon's shell-like splitting, inside the escapes of a service file.
std::string exec_word(std::string_view word) {
    std::string text = "'";
    for (const char c : word) {
        if (c == '\'')
            text += R"('"'"')";  // without a backslash, which daemons do not read alike
        else if (c == '\\')
            text += R"(\\)";
        else if (c == '\n')
            text += R"(\n)";
        else
            text += c;
    }
    return text + "'";
}

}  // namespace

std::string address_escaped(std::string_view path) {
    constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_/.";
    std::string escaped;
    for (const char c : path) {
        if (plain.find(c) != std::string_view::npos) {
            escaped += c;
            continue;
        }
        std::array<char, 4> code{};
        std::snprintf(code.data(), code.size(), "%%%02x", static_cast<unsigned char>(c));
        escaped += code.data();
    }
    return escaped;
}

std::string bus_configuration(const std::string& address, const std::string& services,
                              const std::string& extra_xml) {
    return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>)" +
           xml_escaped(address) + R"(</listen>
  <auth>EXTERNAL</auth>
  <servicedir>)" +
           xml_escaped(services) + R"(</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
)" + extra_xml +
           "\n</busconfig>\n";
}

std::string service_file(const std::string& bus_name, const std::string& program,
                         const std::string& service) {
    return "[D-BUS Service]\nName=" + bus_name + "\nExec=" + exec_word(program) + " activate " +
           exec_word(service) + "\n";
}

}  // namespace common
