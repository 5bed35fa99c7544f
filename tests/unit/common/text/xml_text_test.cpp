#include "common/text/xml_text.hpp"

#include <gtest/gtest.h>

namespace common {
namespace {

TEST(XmlText, EscapesWhatXmlTakesForItself) {
    EXPECT_EQ(xml_escaped(""), "");
    EXPECT_EQ(xml_escaped("/tmp/a b'\"c"), "/tmp/a b'\"c");
    EXPECT_EQ(xml_escaped("<&>&amp;"), "&lt;&amp;&gt;&amp;amp;");
}

TEST(XmlAttribute, HoldsOnlyWhatXmlCanHold) {
    EXPECT_EQ(xml_attribute("a \"b\" <c> & d"), "a &quot;b&quot; &lt;c&gt; &amp; d");
    EXPECT_EQ(xml_attribute("a\nb\x01"), "a\\nb\\x01");
    EXPECT_EQ(xml_attribute("\xEF\xBF\xBE\xEF\xBF\xBF."), "\xEF\xBF\xBD\xEF\xBF\xBD.");
}

}  // namespace
}  // namespace common
