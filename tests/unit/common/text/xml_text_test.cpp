#include "common/text/xml_text.hpp"

#include <gtest/gtest.h>

namespace common {
namespace {

TEST(XmlText, EscapesWhatXmlTakesForItself) {
    EXPECT_EQ(xml_escaped(""), "");
    EXPECT_EQ(xml_escaped("/tmp/a b'\"c"), "/tmp/a b'\"c");
    EXPECT_EQ(xml_escaped("<&>&amp;"), "&lt;&amp;&gt;&amp;amp;");
}

}  // namespace
}  // namespace common
