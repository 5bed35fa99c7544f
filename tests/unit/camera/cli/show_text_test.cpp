#include "camera/cli/show_text.hpp"

#include <gtest/gtest.h>

namespace camera {
namespace {

TEST(ShowText, ShowsServicesRegistrationsValuesAndFaults) {
    EXPECT_EQ(show_text(common::Json::parse(R"({"bus":"unix:path=/tmp/bus","services":[
        {"name":"temperature","state":"up","unique_name":":1.4","activatable":true,
         "bus_names":["com.example.A","com.example.B"],
         "registrations":[{"id":2,"client":":1.9","what":"change of main by 0.5","delta":0.5}]},
        {"name":"power","state":"down","unique_name":"","activatable":true,
         "bus_names":["com.example.C"],"registrations":[]},
        {"name":"video","state":"down","unique_name":"","activatable":false,
         "bus_names":[],"registrations":[]}],
        "values":{"temperature.main":36.5,"power":"nan","a":"","b":"two\nlines"},
        "faults":[{"member":"Get","what":"not sent, 2 times","times":2}]})")),
              R"(bus unix:path=/tmp/bus
service temperature: up as :1.4
  name com.example.A
  name com.example.B
  registration 2 of :1.9: change of main by 0.5
service power: down, a call brings it up
  name com.example.C
service video: down
temperature.main  36.5
power             nan
a                 ""
b                 two\nlines
fault Get: not sent, 2 times
)");
}

}  // namespace
}  // namespace camera
