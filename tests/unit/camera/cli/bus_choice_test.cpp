// Decides by looking at addresses alone: none of these connects to anything.
#include "camera/cli/bus_choice.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/temporary_folder.hpp"

namespace camera {
namespace {

bool is_system(const std::string& address) {
    return is_machines_system_bus(address, nullptr);
}

TEST(BusChoice, SystemIsTheMachinesUnlessTheEnvironmentLeadsElsewhere) {
    EXPECT_TRUE(is_machines_system_bus("system", nullptr));
    EXPECT_TRUE(is_machines_system_bus("system", ""));
    EXPECT_FALSE(is_machines_system_bus("system", "unix:path=/tmp/somewhere/bus"));
    EXPECT_TRUE(is_machines_system_bus("system", "unix:path=/run/dbus/system_bus_socket"));
    EXPECT_TRUE(is_machines_system_bus(
        "system", "unix:path=/tmp/somewhere/bus;unix:path=/var/run/dbus/system_bus_socket"));
}

TEST(BusChoice, TheEnvironmentSaysNothingAboutAnAddress) {
    EXPECT_FALSE(is_machines_system_bus("unix:path=/tmp/somewhere/bus",
                                        "unix:path=/run/dbus/system_bus_socket"));
    EXPECT_TRUE(is_machines_system_bus("unix:path=/run/dbus/system_bus_socket",
                                       "unix:path=/tmp/somewhere/bus"));
}

TEST(BusChoice, KnowsTheSystemsSocketInEachAddressThatLeadsThere) {
    for (const char* address :
         {"unix:path=/run/dbus/system_bus_socket", "unix:path=/var/run/dbus/system_bus_socket",
          // Among other pairs, and in a list.
          "unix:path=/run/dbus/system_bus_socket,guid=00112233",
          "unix:guid=00112233,path=/run/dbus/system_bus_socket",
          "unix:path=/tmp/a;unix:path=/run/dbus/system_bus_socket",
          "unix:path=/run/dbus/system_bus_socket;unix:path=/tmp/a",
          "tcp:host=h,port=1;unix:guid=0,path=/run/dbus/system_bus_socket;",
          // With escapes, and by a detour.
          "unix:path=/run/dbus%2fsystem_bus_socket",
          "unix:path=%2Frun%2Fdbus%2Fsystem%5fbus%5Fsocket",
          "unix:path=/run/dbus/system_bus_socke%74", "unix:path=/run/./dbus//system_bus_socket",
          "unix:path=/run/nowhere/../dbus/system_bus_socket"})
        EXPECT_TRUE(is_system(address)) << address;
}

TEST(BusChoice, TakesNoOtherAddressForTheSystems) {
    const test::TemporaryFolder folder;
    for (const std::string& address : std::initializer_list<std::string>{
             "session", "", "unix:path=/run/user/1000/bus", "unix:path=/run/dbus",
             "unix:path=/run/dbus/system_bus_socket2", "unix:abstract=/run/dbus/system_bus_socket",
             "unix:guid=0123", "tcp:host=localhost,port=1234",
             "unixexec:path=/run/dbus/system_bus_socket",
             "unix:guid=00112233,path=/tmp/bus,x=/run/dbus/system_bus_socket",
             "unix:path=/tmp/a;unix:path=/tmp/b;;", "unix:path=/run/dbus/system_bus_socket%",
             "unix:path=/run/dbus/system_bus_socket%7", "unix:path=/run/dbus/system_bus_socket%zz",
             "unix:path=" + folder.write("system_bus_socket", "")})
        EXPECT_FALSE(is_system(address)) << address;
}

}  // namespace
}  // namespace camera
