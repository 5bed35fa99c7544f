#include "common/text/line_text.hpp"

#include <gtest/gtest.h>

#include "common/text/json.hpp"
#include "tests/support/json_printing.hpp"

namespace common {
namespace {

TEST(OneLine, PlainTextStaysAsItIs) {
    for (const std::string text : {"", "fenwa: ready", "~ !\"\\'", "36,5 °C", "☂ 温度 👍🏽",
                                   "C:\\temp\\new", "\u00a0\u200b"})
        EXPECT_EQ(one_line(text), text);
}

TEST(OneLine, ControlCharactersBecomeEscapes) {
    EXPECT_EQ(one_line("a\nb\r\tc"), "a\\nb\\r\\tc");
    EXPECT_EQ(one_line("\x1b[2J\x01\x1f\x7f"), "\\x1b[2J\\x01\\x1f\\u007f");
    EXPECT_EQ(one_line(std::string_view("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(one_line("\u0080\u0085\u009b31m\u009f\u00a0"),
              "\\u0080\\u0085\\u009b31m\\u009f\u00a0");
}

TEST(OneLine, WhatTurnsOrEndsALineBecomesAnEscape) {
    EXPECT_EQ(one_line("\u061c\u200e\u200f\u202a\u202b\u202c\u202d\u202e"),
              "\\u061c\\u200e\\u200f\\u202a\\u202b\\u202c\\u202d\\u202e");
    EXPECT_EQ(one_line("\u2066\u2067\u2068\u2069\u2028\u2029"),
              "\\u2066\\u2067\\u2068\\u2069\\u2028\\u2029");
    EXPECT_EQ(one_line("\u2027\u202f\u2065\u206a"), "\u2027\u202f\u2065\u206a");
}

TEST(OneLine, BytesThatAreNotUtf8BecomeEscapes) {
    EXPECT_EQ(one_line("a\xff\xfe"), "a\\xff\\xfe");
    EXPECT_EQ(one_line("\x80z\xc3"), "\\x80z\\xc3");                  // half characters
    EXPECT_EQ(one_line("\xc3\x28"), "\\xc3(");                        // a wrong second byte
    EXPECT_EQ(one_line("\xe2\x82"), "\\xe2\\x82");                    // cut off
    EXPECT_EQ(one_line("\xc0\x8a"), "\\xc0\\x8a");                    // a line end, too long
    EXPECT_EQ(one_line("\xe0\x80\x8a"), "\\xe0\\x80\\x8a");           // likewise
    EXPECT_EQ(one_line("\xf0\x80\x80\x8a"), "\\xf0\\x80\\x80\\x8a");  // likewise
    EXPECT_EQ(one_line("\xed\xa0\x80"), "\\xed\\xa0\\x80");           // half a pair of UTF-16
    EXPECT_EQ(one_line("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");  // beyond the last character
    EXPECT_EQ(one_line("\xf5\x80\x80\x80"), "\\xf5\\x80\\x80\\x80");
    EXPECT_EQ(one_line("\xf4\x8f\xbf\xbf\xed\x9f\xbf\xee\x80\x80"),
              "\xf4\x8f\xbf\xbf\xed\x9f\xbf\xee\x80\x80");
}

TEST(OneLine, SafeTextStaysAsItIsAndJsonStaysJson) {
    const std::string hostile = "\x1b[2J\n\x7f\u0085\u202e\"\\ü\xff";
    EXPECT_EQ(one_line(one_line(hostile)), one_line(hostile));
    const Json value = "\x1b[2J\n\x7f\u0085\u202e\"\\ü";
    EXPECT_EQ(common::parse_json(one_line(json_line(value)), "the text"), value);
}

TEST(OneLine, LoggedLineKeepsItsOwnEnd) {
    EXPECT_EQ(without_line_end("a\n"), "a");
    EXPECT_EQ(without_line_end("a\n\n"), "a\n");
    EXPECT_EQ(without_line_end("a"), "a");
    EXPECT_EQ(without_line_end(""), "");
}

TEST(Shortened, KeepsBeginningAndEndOfALongText) {
    EXPECT_EQ(shortened("0123456789", 10), "0123456789");
    EXPECT_EQ(shortened("0123456789a", 8), "012345…9a");
    EXPECT_EQ(shortened("ääääääääää", 9), "äää…ä");  // whole characters only
    const std::string no_text(100, '\x80');
    EXPECT_LE(shortened(no_text, 8).size(), 16U);
}

TEST(InQuotes, BoundsANameOrValue) {
    EXPECT_EQ(in_quotes("name"), "'name'");
    const std::string name(200, 'n');
    EXPECT_EQ(in_quotes(name), "'" + name + "'");
    EXPECT_EQ(in_quotes(std::string(62914560, 'n')),
              "'" + std::string(150, 'n') + "…" + std::string(50, 'n') + "'");
}

}  // namespace
}  // namespace common
