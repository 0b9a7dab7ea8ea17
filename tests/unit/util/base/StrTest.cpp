#include "util/base/Str.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "util/base/LastError.h"

namespace morvax {
namespace {

TEST(StrTest, SmallBufferGrowthAndCopies) {
    Str s;
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(s.capacity(), 15u);
    EXPECT_EQ(s.c_str()[0], '\0');
    s.append("0123456789abcde");  // exactly the inline capacity
    EXPECT_EQ(s.capacity(), 15u);
    s.append('f');
    // The request rounded up to 16 minus one, or one and a half times the old capacity.
    EXPECT_EQ(s.capacity(), 31u);
    s.append(std::string(40, 'x').c_str());
    EXPECT_EQ(s.capacity(), 63u);
    EXPECT_EQ(s.size(), 56u);
    EXPECT_EQ(s.c_str()[56], '\0');

    Str copy(s);
    Str moved(std::move(copy));
    EXPECT_EQ(moved, s);
    Str shortOne("abc");
    Str other(std::string(100, 'y'));
    shortOne.swap(other);
    EXPECT_EQ(other, "abc");
    EXPECT_EQ(shortOne.size(), 100u);
    other.swap(shortOne);
    EXPECT_EQ(shortOne, "abc");
    // Appending a part of itself while it reallocates.
    Str self("0123456789abcdef");
    self.append(self.data() + 2, 10);
    EXPECT_EQ(self, "0123456789abcdef23456789ab");
    self = self.data() + 20;
    EXPECT_EQ(self, "6789ab");
}

// However it becomes empty, a Str's text ends at once: c_str() never shows older bytes.
TEST(StrTest, EmptyAssignmentsLeaveATerminator) {
    Str a("abc");
    a = "";
    EXPECT_STREQ(a.c_str(), "");
    Str b("abc");
    b = StrSegment();
    EXPECT_STREQ(b.c_str(), "");
    Str c(std::string(40, 'z'));
    const Str empty;
    c = empty;
    EXPECT_STREQ(c.c_str(), "");
    Str d("abc");
    d.assign(nullptr, 0);
    EXPECT_STREQ(d.c_str(), "");
}

TEST(StrTest, WideConversionsReplaceInvalidInput) {
    EXPECT_EQ(Str::fromWide(u"h\u00e9llo \U0001F600"), "h\xc3\xa9llo \xf0\x9f\x98\x80");
    const char16_t lone[] = {u'a', 0xDC00, u'b', 0xD800};
    EXPECT_EQ(Str::fromWide(lone, 4),
              "a\xef\xbf\xbd"
              "b\xef\xbf\xbd");
    EXPECT_EQ(Str::toWide("h\xc3\xa9\xf0\x9f\x98\x80"), u"h\u00e9\U0001F600");
    // Truncated, overlong and surrogate-coded sequences.
    WStr w = Str::toWide(StrSegment("a\xc3", 2));
    EXPECT_EQ(w, u"a\uFFFD");
    EXPECT_EQ(Str::toWide("\xc0\xafz"), u"\uFFFD\uFFFDz");
    EXPECT_EQ(Str::toWide("\xed\xa0\x80"),
              std::u16string(u"\uFFFD\uFFFD\uFFFD").substr(0, Str::toWide("\xed\xa0\x80").size()));
    EXPECT_FALSE(Str::toWide("\xed\xa0\x80").empty());
    // Appending measures up to the terminator; empty input appends nothing.
    Str s("x");
    s.appendWide(u"yz");
    s.appendWide(u"", 0);
    EXPECT_EQ(s, "xyz");
    // The caller's last error survives a conversion.
    LastError::set(1234);
    s.appendWide(u"\u00e9");
    Str::toWide("abc");
    EXPECT_EQ(LastError::get(), 1234u);
}

TEST(StrTest, FindAndReplace) {
    const char* text = "abcabcab";
    EXPECT_EQ(Str::find(text, 8, "ca", 0, 2), 2u);
    EXPECT_EQ(Str::find(text, 8, "ca", 3, 2), 5u);
    EXPECT_EQ(Str::find(text, 8, "cab", 6, 3), Str::npos);
    EXPECT_EQ(Str::find(text, 8, "", 7, 0), 7u);
    EXPECT_EQ(Str::find(text, 8, "", 8, 0), Str::npos);
    EXPECT_EQ(Str::find(text, 8, "abcabcabc", 0, 9), Str::npos);
    Str s("a.b.c");
    EXPECT_EQ(s.replaceAll(".", "::"), 2u);
    EXPECT_EQ(s, "a::b::c");
    EXPECT_EQ(s.replaceAll("", "x"), 0u);
    EXPECT_EQ(s.replaceAll("::", ""), 2u);
    EXPECT_EQ(s, "abc");
    Str overlap("aaaa");
    EXPECT_EQ(overlap.replaceAll("aa", "b"), 2u);
    EXPECT_EQ(overlap, "bb");
    EXPECT_EQ(Str::concat("ab", "cd", 2), "abcd");
}

TEST(StrTest, LowerCasing) {
    Str ascii("MiXeD Case Key With More Than Sixteen BYTES");
    ascii.toLower();
    EXPECT_EQ(ascii, "mixed case key with more than sixteen bytes");
    // A non-ASCII byte past the first 16 switches to code-point lowering for the whole text.
    Str mixed("ABCDEFGHIJKLMNOPQRS \xc3\x84\xce\xa3\xd0\x96 \xc4\xb0 Z");
    EXPECT_EQ(mixed.toLowerCopy(), "abcdefghijklmnopqrs \xc3\xa4\xcf\x83\xd0\xb6 i z");
    // Invalid bytes are kept as they are.
    Str invalid(
        "A\xff"
        "B");
    invalid.toLower();
    EXPECT_EQ(invalid,
              "a\xff"
              "b");
}

TEST(StrTest, TrimAndQuotes) {
    const CharSet blanks(" \t");
    Str s("  \t value \t ");
    s.trim(blanks);
    EXPECT_EQ(s, "value");
    Str left("  x  ");
    left.trim(blanks, true, false);
    EXPECT_EQ(left, "x  ");
    Str only(" \t \t");
    only.trim(blanks);
    EXPECT_TRUE(only.empty());
    EXPECT_EQ(Str::trimCopy("  y ", blanks, false, true), "  y");
    EXPECT_EQ(Str::trimCopy("xxyxx", CharSet("x", true)), "xxyxx");
    EXPECT_EQ(Str::trimCopy("abyba", CharSet("y", true)), "y");
    Str q("\"quoted\"");
    q.removeMatchingQuotes('"');
    EXPECT_EQ(q, "quoted");
    Str one("\"");
    one.removeMatchingQuotes('"');
    EXPECT_EQ(one, "\"");
    Str mismatched("'a\"");
    mismatched.removeMatchingQuotes('"');
    EXPECT_EQ(mismatched, "'a\"");
}

TEST(StrTest, SplitOnChar) {
    std::vector<Str> parts;
    splitOnChar("a,,b,", ',', -1, parts);
    ASSERT_EQ(parts.size(), 4u);
    EXPECT_EQ(parts[0], "a");
    EXPECT_EQ(parts[1], "");
    EXPECT_EQ(parts[2], "b");
    EXPECT_EQ(parts[3], "");
    std::vector<StrSegment> limited;
    splitOnChar("k=v=w", '=', 1, limited);
    ASSERT_EQ(limited.size(), 2u);
    EXPECT_EQ(limited[0].view(), "k");
    EXPECT_EQ(limited[1].view(), "v=w");
    std::vector<StrSegment> none;
    splitOnChar("k=v", '=', 0, none);
    ASSERT_EQ(none.size(), 1u);
    EXPECT_EQ(none[0].view(), "k=v");
    std::vector<StrSegment> empty;
    splitOnChar("", '=', -1, empty);
    EXPECT_TRUE(empty.empty());
}

}  // namespace
}  // namespace morvax
