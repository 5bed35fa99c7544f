#include "tests/broker/bus_socket.hpp"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "common/bus/bus.hpp"
#include "common/text/percent_decoding.hpp"

namespace test {
namespace {

constexpr std::string_view path_prefix = "unix:path=";

sockaddr_un name_of(const std::string& path) {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    if (path.size() >= sizeof name.sun_path)
        throw std::runtime_error("the path of a socket is too long: " + path);
    path.copy(name.sun_path, path.size());
    return name;
}

}  // namespace

common::Descriptor bound_socket(int type, const std::string& path) {
    common::Descriptor made(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    const sockaddr_un name = name_of(path);
    if (made.get() < 0 ||
        bind(made.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0)
        common::fail(errno, path.c_str());
    return made;
}

std::string listen_address(const std::string& configuration_file) {
    std::ifstream file(configuration_file);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::string begin = "<listen>" + std::string(path_prefix);
    const std::size_t at = text.find(begin);
    const std::size_t end = text.find("</listen>");
    if (at == std::string::npos || end == std::string::npos)
        throw std::runtime_error(configuration_file + " names no path to listen at");
    return text.substr(at + 8, end - at - 8);
}

std::string socket_path(const std::string& address) {
    return common::percent_decoded(address.substr(path_prefix.size()));
}

}  // namespace test
