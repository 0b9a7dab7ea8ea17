#include "util/base/LogFormatter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "util/base/LastError.h"
#include "util/base/Str.h"

namespace morvax {
namespace {

std::string fmt(const char* format, ...) {
    va_list args;
    va_start(args, format);
    Str out;
    out.appendFormatV(format, args);
    va_end(args);
    return out.toStdString();
}

std::string fmtError(uint32_t code, const char* format) {
    Str out;
    out.appendFormatError(code, format);
    return out.toStdString();
}

class CollectingSink : public FormatSink {
  public:
    void write(const char* bytes, size_t length) override {
        text.append(bytes, length);
        ++writes;
        maxWrite = std::max(maxWrite, length);
    }
    std::string text;
    size_t writes = 0;
    size_t maxWrite = 0;
};

TEST(LogFormatterTest, IntegersFollowFlagsWidthAndPrecision) {
    EXPECT_EQ(fmt("%d|%i|%u", -42, 7, 3000000000u), "-42|7|3000000000");
    EXPECT_EQ(fmt("%5d|%-5d|%05d|%+d|% d|%+ d", 42, 42, -42, 5, 5, 5),
              "   42|42   |-0042|+5| 5|+5");
    EXPECT_EQ(fmt("%.3d|%8.3d|%-8.3d|", 7, -7, 7), "007|    -007|007     |");
    // A precision cancels zero padding, also when it comes from an argument.
    EXPECT_EQ(fmt("%08.3d|%0*.*d", 7, 6, 2, 7), "     007|    07");
    EXPECT_EQ(fmt("%*d|%*d", 4, 1, -4, 1), "   1|1   ");
    EXPECT_EQ(fmt("%x|%X|%#x|%#X|%o|%#o", 255u, 255u, 255u, 255u, 8u, 8u),
              "ff|FF|0xff|0XFF|10|010");
    EXPECT_EQ(fmt("%#x|%#o|%.0d|%.0x|%#.0o", 0u, 0u, 0, 0u, 0u), "0|0|||0");
    EXPECT_EQ(fmt("%#010x", 255u), "0x000000ff");
    EXPECT_EQ(fmt("%'d|%'u|%'d|%'d", 1234567, 1000u, -999, 0), "1,234,567|1,000|-999|0");
    EXPECT_EQ(fmt("%'lld", 1234567890123LL), "1,234,567,890,123");
    // Sign flags are cleared for unsigned conversions.
    EXPECT_EQ(fmt("%+u|% x", 5u, 10u), "5|a");
}

TEST(LogFormatterTest, ArgumentSizesFollowTheLengthModifier) {
    EXPECT_EQ(fmt("%lld|%llu|%llx", -1LL, 18446744073709551615ULL, 0x123456789ULL),
              "-1|18446744073709551615|123456789");
    EXPECT_EQ(fmt("%I64d|%I32d|%Id|%jd|%zd|%td|%qd", -5LL, -6, -7LL, -8LL, -9LL, -10LL, -11LL),
              "-5|-6|-7|-8|-9|-10|-11");
    // Without ll a long long argument is read as 32 bits.
    EXPECT_EQ(fmt("%d", static_cast<long long>(0x100000005LL)), "5");
    // hh and h do not narrow.
    EXPECT_EQ(fmt("%hhd|%hd", 300, 70000), "300|70000");
    EXPECT_EQ(fmt("%ld|%lu", -3, 4u), "-3|4");
}

TEST(LogFormatterTest, PointersPrintNullAsNil) {
    EXPECT_EQ(fmt("%p", static_cast<void*>(nullptr)), "(nil)");
    EXPECT_EQ(fmt("[%-7p]", static_cast<void*>(nullptr)), "[(nil)  ]");
    EXPECT_EQ(fmt("[%7p]", static_cast<void*>(nullptr)), "[  (nil)]");
    EXPECT_EQ(fmt("[%3p]", static_cast<void*>(nullptr)), "[(nil)]");
    EXPECT_EQ(fmt("%p", reinterpret_cast<void*>(uintptr_t{0xABCDEF})), "0xabcdef");
}

TEST(LogFormatterTest, UnknownAndTruncatedConversionsAreCopied) {
    int n = 0;
    EXPECT_EQ(fmt("a%nb", &n), "a%nb");
    // L is no modifier: "%L" is copied and "f" is literal; no argument is consumed.
    EXPECT_EQ(fmt("%Lf %d", 7), "%Lf 7");
    EXPECT_EQ(fmt("abc%"), "abc%");
    EXPECT_EQ(fmt("%-5"), "%");
    EXPECT_EQ(fmt("x%5.3"), "x%");
    EXPECT_EQ(fmt("%ll"), "%");
    EXPECT_EQ(fmt("100%%"), "100%");
    EXPECT_EQ(fmt("%k%d", 3), "%k3");
    EXPECT_EQ(fmt("%5%"), "%");
    // "I" not followed by an integer conversion is skipped as a flag.
    EXPECT_EQ(fmt("%Is", "x"), "x");
}

TEST(LogFormatterTest, CharactersAndStrings) {
    EXPECT_EQ(fmt("%c%c|%3c|%-3c|", 'a', 'b', 'x', 'y'), "ab|  x|y  |");
    EXPECT_EQ(fmt("%s|%6s|%-6s|%.2s|%6.2s", "abc", "abc", "abc", "abc", "abc"),
              "abc|   abc|abc   |ab|    ab");
    EXPECT_EQ(fmt("%.*s", 3, "abcdef"), "abc");
    // Precision measures with strnlen: the text need not be terminated within it.
    const char unterminated[3] = {'x', 'y', 'z'};
    EXPECT_EQ(fmt("%.3s", unterminated), "xyz");
    const char16_t* wide = u"gr\u00fc\u00dfe";
    EXPECT_EQ(fmt("%S", wide),
              "gr\xc3\xbc\xc3\x9f"
              "e");
    EXPECT_EQ(fmt("%ls", wide),
              "gr\xc3\xbc\xc3\x9f"
              "e");
    EXPECT_EQ(fmt("%hS", "narrow"), "narrow");
    // Width of a wide string counts wide units, not bytes.
    EXPECT_EQ(fmt("[%7S]", wide),
              "[  gr\xc3\xbc\xc3\x9f"
              "e]");
    EXPECT_EQ(fmt("%C|%lc|%hC", u'\u00e9', u'\u00e9', 'z'), "\xc3\xa9|\xc3\xa9|z");
    // Lone surrogates become U+FFFD; a pair becomes one code point.
    const char16_t bad[] = {u'a', 0xD800, u'b', 0xDC00, 0xD83D, 0xDE00, 0};
    EXPECT_EQ(fmt("%S", bad),
              "a\xef\xbf\xbd"
              "b\xef\xbf\xbd\xf0\x9f\x98\x80");
}

TEST(LogFormatterTest, FloatsMatchThePlatformsDigits) {
    const double values[] = {0.0, 1.0, -1.5, 3.14159265358979, 1e-5, 123456.789, 1e21, 2.5e-300};
    const char* formats[] = {"%e",    "%E",  "%f",     "%g",       "%G",  "%.3e", "%.0f",   "%#.0f",
                             "%.10g", "%#g", "%12.4f", "%-12.2e|", "%+f", "% e",  "%012.3f"};
    for (const char* f : formats) {
        for (double v : values) {
            char expected[512];
            std::snprintf(expected, sizeof expected, f, v);
            EXPECT_EQ(fmt(f, v), expected) << f << " of " << v;
        }
    }
    EXPECT_EQ(fmt("%e", 1.0), "1.000000e+00");
    EXPECT_EQ(fmt("%g|%g|%g", 100000.0, 1000000.0, 0.0001), "100000|1e+06|0.0001");
    EXPECT_EQ(fmt("%'.2f|%'f", 1234567.891, 999.5), "1,234,567.89|999.500000");
    EXPECT_EQ(fmt("%5.*f", 1, 99.54), " 99.5");
}

TEST(LogFormatterTest, NonFiniteValues) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(fmt("%f|%F|%e|%G", inf, inf, -inf, -inf), "inf|INF|-inf|-INF");
    EXPECT_EQ(fmt("%f|%E", nan, -nan), "nan|NAN");
    EXPECT_EQ(fmt("[%6e]", inf), "[   inf]");
    EXPECT_EQ(fmt("[%06f]", nan), "[   nan]");
    EXPECT_EQ(fmt("[%-6f]", -inf), "[-inf  ]");
    EXPECT_EQ(fmt("%+f|% f", inf, nan), "+inf| nan");
}

TEST(LogFormatterTest, HexFloat) {
    EXPECT_EQ(fmt("%a", 1.0), "0x1p+0");
    EXPECT_EQ(fmt("%a", 0.5), "0x1p-1");
    EXPECT_EQ(fmt("%a", 0.1), "0x1.999999999999ap-4");
    EXPECT_EQ(fmt("%A", -10.0), "-0X1.4P+3");
    EXPECT_EQ(fmt("%.1a", 1.96875), "0x2.0p+0");  // 0x1.f8: ties round upward
    EXPECT_EQ(fmt("%.2a", 1.0), "0x1.00p+0");
    EXPECT_EQ(fmt("%a", 0.0), "0x0p+0");
    EXPECT_EQ(fmt("%a", 4.9406564584124654e-324), "0x0.0000000000001p-1022");
}

TEST(LogFormatterTest, ErrorTextFromTheSavedValue) {
    EXPECT_EQ(fmtError(0x80041002u, "%m"), "Object cannot be found.");
    EXPECT_EQ(fmtError(0x8004104Au, "%m"), "Undefined error.");
    EXPECT_EQ(fmtError(0x80005000u, "%m"), "An invalid ADSI path name was passed.");
    EXPECT_EQ(fmtError(0x8004108Bu, "%m"),
              "FormatMessage was unable to decode error (2147750027), (0x8004108b)");
    EXPECT_EQ(fmtError(0x80041002u, "%.10m"), "Object can");
    EXPECT_EQ(fmtError(0x8004108Bu, "%.13m"), "FormatMessage");
    EXPECT_EQ(fmtError(0x80041002u, "[%30m]"), "[       Object cannot be found.]");
    EXPECT_EQ(fmtError(0x80041002u, "[%-25m]"), "[Object cannot be found.  ]");
    // The system's own texts come first and lose their line ends.
    Str access;
    access.appendFormatError(5, "%m");
    EXPECT_FALSE(access.empty());
    EXPECT_NE(access.back(), '\n');
    EXPECT_NE(access.back(), '\r');
    EXPECT_EQ(access.view().find("FormatMessage"), std::string_view::npos);
}

TEST(LogFormatterTest, PlainFormatReadsTheLastErrorAndKeepsIt) {
    LastError::set(0x80041010u);
    Str text;
    text.format("[%m]");
    EXPECT_EQ(text, "[Specified class is not valid.]");
    EXPECT_EQ(LastError::get(), 0x80041010u);
    text.format("%s (error=\"%m\" HRESULT=%X)%s%s%s", "Executing query failed", 0x80041021u, " (",
                ": SELECT x", ")");
    EXPECT_EQ(text,
              "Executing query failed (error=\"Specified class is not valid.\" "
              "HRESULT=80041021) (: SELECT x)");
}

TEST(LogFormatterTest, MaskControlsExtraConversions) {
    FormatSpec spec;
    const char* f = "%m";
    const char* cursor = f;
    ASSERT_TRUE(LogFormatter::parse(cursor, f + 2, spec, 0));
    EXPECT_EQ(spec.kind, FormatSpec::KIND_LITERAL);
    EXPECT_EQ(std::string(spec.literal, spec.literalLength), "%m");
    f = "%S";
    cursor = f;
    ASSERT_TRUE(LogFormatter::parse(cursor, f + 2, spec, LogFormatter::ALLOW_ERROR_TEXT));
    EXPECT_EQ(spec.kind, FormatSpec::KIND_LITERAL);
    f = "%-08.3lld";
    cursor = f;
    ASSERT_TRUE(LogFormatter::parse(cursor, f + 9, spec));
    EXPECT_EQ(spec.kind, FormatSpec::KIND_SIGNED);
    EXPECT_EQ(spec.fill, FormatSpec::FILL_LEFT);
    EXPECT_EQ(spec.width, 8u);
    EXPECT_EQ(spec.precision, 3u);
    EXPECT_EQ(spec.argumentSize, 8u);
    EXPECT_EQ(cursor, f + 9);
    EXPECT_FALSE(LogFormatter::parse(cursor, f + 9, spec));
}

TEST(LogFormatterTest, CrashSafeSinkPadsInBlocksAndPrintsErrorNumbers) {
    CollectingSink sink;
    LogFormatter::formatToSink(sink, 5, "[%m] %s=%d [%100s]", "x", 42, "y");
    std::string expected = "[[windows error #5]] x=42 [" + std::string(99, ' ') + "y]";
    EXPECT_EQ(sink.text, expected);
    EXPECT_LE(sink.maxWrite, 32u + 32u);
    CollectingSink pads;
    LogFormatter::formatToSink(pads, 0, "%70d", 1);
    EXPECT_EQ(pads.text, std::string(69, ' ') + "1");
    EXPECT_EQ(pads.maxWrite, 32u);
}

TEST(LogFormatterTest, EscapeHelpers) {
    Str out;
    LogFormatter::appendPercentEncoded(out, "a b/\xff", CharSet("abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ(out, "a%20b%2F%FF");
    out.clear();
    LogFormatter::appendPrintable(out, StrSegment("ok\n\x01~", 5));
    EXPECT_EQ(out, "ok\\x0A\\x01~");
}

}  // namespace
}  // namespace morvax
