#include "host/value/port_value.hpp"
#include "tests/support/json_printing.hpp"

#include <gtest/gtest.h>

namespace host {
namespace {

TEST(PortValue, IsReadWhereThePortKeepsIt) {
    const int number = -5;
    EXPECT_EQ(value_at(Fenwa::datatype_of<int>(), &number), PortValue(-5));
    const bool truth = true;
    EXPECT_EQ(value_at(Fenwa::datatype_of<bool>(), &truth), PortValue(true));
    const float ratio = 0.5F;
    EXPECT_EQ(value_at(Fenwa::datatype_of<float>(), &ratio), PortValue(0.5F));
    const double level = 0.25;
    EXPECT_EQ(value_at(Fenwa::datatype_of<double>(), &level), PortValue(0.25));
    const Fenwa::datatype_timersource tick{3, std::chrono::milliseconds(20)};
    EXPECT_EQ(value_at(Fenwa::datatype_of<Fenwa::datatype_timersource>(), &tick), PortValue(tick));
}

TEST(PortValue, OfAnotherDatatypeOrOfAPortWithoutOneIsNone) {
    const int number = 1;
    EXPECT_EQ(value_at(Fenwa::Datatype("/acme/number"), &number), PortValue());
    EXPECT_EQ(value_at(Fenwa::datatype_of<int>(), nullptr), PortValue());
    EXPECT_EQ(common::json_line(to_json(PortValue())), "null");
}

TEST(PortValue, TypesHaveShortNames) {
    EXPECT_EQ(type_name(Fenwa::datatype_of<Fenwa::datatype_timersource>()), "timersource");
    EXPECT_EQ(type_name(Fenwa::Datatype("/acme/number")), "/acme/number");
}

TEST(PortValue, TypesAreFoundByTheirNames) {
    for (const std::string& path : known_datatypes())
        EXPECT_EQ(datatype_named(type_name(Fenwa::Datatype(path))).path(), path);
    EXPECT_EQ(datatype_named("/acme/number").path(), "/acme/number");
}

}  // namespace
}  // namespace host
