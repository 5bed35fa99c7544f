#include "common/bus/private_bus_files.hpp"

#include <gtest/gtest.h>

namespace common {
namespace {

TEST(PrivateBusFiles, EscapeWhatAnAddressTakesForItself) {
    EXPECT_EQ(address_escaped("/tmp/Fenwa_bus-1.2/bus"), "/tmp/Fenwa_bus-1.2/bus");
    EXPECT_EQ(address_escaped("a b,c;d=e%f:g"), "a%20b%2cc%3bd%3de%25f%3ag");
    EXPECT_EQ(address_escaped("\xC3\xA9\x01~*"), "%c3%a9%01%7e%2a");
}

TEST(PrivateBusFiles, TheConfigurationHoldsAddressFolderAndExtraXml) {
    EXPECT_EQ(bus_configuration("unix:path=/tmp/a&b", "/tmp/<c>", "  <limit name=\"x\">1</limit>"),
              R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=/tmp/a&amp;b</listen>
  <auth>EXTERNAL</auth>
  <servicedir>/tmp/&lt;c&gt;</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="x">1</limit>
</busconfig>
)");
}

TEST(PrivateBusFiles, AServiceFileRunsTheProgramForItsService) {
    EXPECT_EQ(service_file("com.example.Name", "/usr/bin/fenwa-camera", "temperature"),
              "[D-BUS Service]\nName=com.example.Name\n"
              "Exec='/usr/bin/fenwa-camera' activate 'temperature'\n");
}

TEST(PrivateBusFiles, AServiceFileEscapesThePathOfTheProgramTwice) {
    // The file's own escapes go first, the shell-like splitting into words second.
    EXPECT_EQ(service_file("n", "/a b\"$/it's", "s"),
              "[D-BUS Service]\nName=n\nExec='/a b\"$/it'\"'\"'s' activate 's'\n");
    EXPECT_EQ(service_file("n", "/back\\slash", "s"),
              "[D-BUS Service]\nName=n\nExec='/back\\\\slash' activate 's'\n");
    EXPECT_EQ(service_file("n", "/new\nline", "s"),
              "[D-BUS Service]\nName=n\nExec='/new\\nline' activate 's'\n");
}

}  // namespace
}  // namespace common
