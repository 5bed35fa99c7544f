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

TEST(BusChoice, SessionAndOtherSocketsAreNotTheSystems) {
    EXPECT_FALSE(is_system("session"));
    EXPECT_FALSE(is_system(""));
    EXPECT_FALSE(is_system("unix:path=/run/user/1000/bus"));
    EXPECT_FALSE(is_system("unix:path=/run/dbus/system_bus_socket2"));
    EXPECT_FALSE(is_system("unix:path=/run/dbus"));
    EXPECT_FALSE(is_system("unix:abstract=/run/dbus/system_bus_socket"));
    EXPECT_FALSE(is_system("unix:guid=0123"));
    EXPECT_FALSE(is_system("tcp:host=localhost,port=1234"));
    EXPECT_FALSE(is_system("unixexec:path=/run/dbus/system_bus_socket"));
}

TEST(BusChoice, KnowsBothPathsOfTheSystemsSocket) {
    EXPECT_TRUE(is_system("unix:path=/run/dbus/system_bus_socket"));
    EXPECT_TRUE(is_system("unix:path=/var/run/dbus/system_bus_socket"));
}

TEST(BusChoice, FindsThePathAmongOtherPairs) {
    EXPECT_TRUE(is_system("unix:path=/run/dbus/system_bus_socket,guid=00112233"));
    EXPECT_TRUE(is_system("unix:guid=00112233,path=/run/dbus/system_bus_socket"));
    EXPECT_FALSE(is_system("unix:guid=00112233,path=/tmp/bus,x=/run/dbus/system_bus_socket"));
}

TEST(BusChoice, LooksAtEachAddressOfAList) {
    EXPECT_TRUE(is_system("unix:path=/tmp/a;unix:path=/run/dbus/system_bus_socket"));
    EXPECT_TRUE(is_system("unix:path=/run/dbus/system_bus_socket;unix:path=/tmp/a"));
    EXPECT_TRUE(is_system("tcp:host=h,port=1;unix:guid=0,path=/run/dbus/system_bus_socket;"));
    EXPECT_FALSE(is_system("unix:path=/tmp/a;unix:path=/tmp/b;;"));
}

TEST(BusChoice, UndoesTheEscapesOfAnAddress) {
    EXPECT_TRUE(is_system("unix:path=/run/dbus%2fsystem_bus_socket"));
    EXPECT_TRUE(is_system("unix:path=%2Frun%2Fdbus%2Fsystem%5fbus%5Fsocket"));
    EXPECT_TRUE(is_system("unix:path=/run/dbus/system_bus_socke%74"));
    EXPECT_FALSE(is_system("unix:path=/run/dbus/system_bus_socket%"));
    EXPECT_FALSE(is_system("unix:path=/run/dbus/system_bus_socket%7"));
    EXPECT_FALSE(is_system("unix:path=/run/dbus/system_bus_socket%zz"));
}

TEST(BusChoice, SeesThroughDetours) {
    EXPECT_TRUE(is_system("unix:path=/run/./dbus//system_bus_socket"));
    EXPECT_TRUE(is_system("unix:path=/run/nowhere/../dbus/system_bus_socket"));
}

TEST(BusChoice, ASocketElsewhereOfTheSameNameIsNotTheSystems) {
    const test::TemporaryFolder folder;
    const std::string path = folder.write("system_bus_socket", "");
    EXPECT_FALSE(is_system("unix:path=" + path));
}

}  // namespace
}  // namespace camera
