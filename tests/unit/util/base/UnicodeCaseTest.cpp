#include "util/base/UnicodeCase.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace morvax {
namespace {

TEST(UnicodeCaseTest, Ascii) {
    EXPECT_EQ(UnicodeCase::toLower(U'A'), U'a');
    EXPECT_EQ(UnicodeCase::toLower(U'Z'), U'z');
    EXPECT_EQ(UnicodeCase::toLower(U'a'), U'a');
    EXPECT_EQ(UnicodeCase::toLower(U'@'), U'@');  // just below 'A'
    EXPECT_EQ(UnicodeCase::toLower(U'['), U'[');  // just above 'Z'
    EXPECT_EQ(UnicodeCase::toLower(U'0'), U'0');
    EXPECT_EQ(UnicodeCase::toLower(0), 0u);
}

TEST(UnicodeCaseTest, Latin) {
    EXPECT_EQ(UnicodeCase::toLower(U'\u00C0'), U'\u00E0');  // À -> à
    EXPECT_EQ(UnicodeCase::toLower(U'\u00DE'), U'\u00FE');  // Þ -> þ
    EXPECT_EQ(UnicodeCase::toLower(U'\u00D7'), U'\u00D7');  // × sits between the capitals
    EXPECT_EQ(UnicodeCase::toLower(U'\u00DF'), U'\u00DF');  // ß has no lower case of its own
    EXPECT_EQ(UnicodeCase::toLower(U'\u0178'), U'\u00FF');  // Ÿ -> ÿ
    EXPECT_EQ(UnicodeCase::toLower(U'\u1E9E'), U'\u00DF');  // capital sharp s -> ß
}

TEST(UnicodeCaseTest, AlternatingPairsMapOnlyTheCapitals) {
    EXPECT_EQ(UnicodeCase::toLower(U'\u0100'), U'\u0101');  // Ā -> ā
    EXPECT_EQ(UnicodeCase::toLower(U'\u0101'), U'\u0101');
    EXPECT_EQ(UnicodeCase::toLower(U'\u012E'), U'\u012F');  // Į -> į
    EXPECT_EQ(UnicodeCase::toLower(U'\u012F'), U'\u012F');
    EXPECT_EQ(UnicodeCase::toLower(U'\u0460'), U'\u0461');  // Cyrillic Ѡ -> ѡ
    EXPECT_EQ(UnicodeCase::toLower(U'\u0461'), U'\u0461');
}

TEST(UnicodeCaseTest, DottedAndDotlessI) {
    EXPECT_EQ(UnicodeCase::toLower(U'\u0130'), U'i');       // İ: the simple form drops the dot
    EXPECT_EQ(UnicodeCase::toLower(U'\u0131'), U'\u0131');  // ı is already lower case
    EXPECT_EQ(UnicodeCase::toLower(U'I'), U'i');
}

TEST(UnicodeCaseTest, GreekAndCyrillic) {
    EXPECT_EQ(UnicodeCase::toLower(U'\u03A3'), U'\u03C3');  // Σ -> σ, never the final form
    EXPECT_EQ(UnicodeCase::toLower(U'\u0391'), U'\u03B1');  // Α -> α
    EXPECT_EQ(UnicodeCase::toLower(U'\u0386'), U'\u03AC');  // Ά -> ά
    EXPECT_EQ(UnicodeCase::toLower(U'\u03C2'), U'\u03C2');  // ς stays
    EXPECT_EQ(UnicodeCase::toLower(U'\u0410'), U'\u0430');  // А -> а
    EXPECT_EQ(UnicodeCase::toLower(U'\u042F'), U'\u044F');  // Я -> я
    EXPECT_EQ(UnicodeCase::toLower(U'\u0401'), U'\u0451');  // Ё -> ё
}

TEST(UnicodeCaseTest, CodePointsWithoutMappingAreUnchanged) {
    EXPECT_EQ(UnicodeCase::toLower(U'\u4E2D'), U'\u4E2D');  // CJK ideograph
    EXPECT_EQ(UnicodeCase::toLower(U'\u20AC'), U'\u20AC');  // euro sign
    EXPECT_EQ(UnicodeCase::toLower(0xD800), 0xD800u);       // lone surrogate
    EXPECT_EQ(UnicodeCase::toLower(0xFFFF), 0xFFFFu);
}

TEST(UnicodeCaseTest, FullWidthAndAstral) {
    EXPECT_EQ(UnicodeCase::toLower(U'\uFF21'), U'\uFF41');          // fullwidth A
    EXPECT_EQ(UnicodeCase::toLower(U'\U00010400'), U'\U00010428');  // Deseret
    EXPECT_EQ(UnicodeCase::toLower(U'\U00010428'), U'\U00010428');
    EXPECT_EQ(UnicodeCase::toLower(U'\U0001E921'), U'\U0001E943');  // last Adlam capital
    EXPECT_EQ(UnicodeCase::toLower(U'\U0001F600'), U'\U0001F600');
}

TEST(UnicodeCaseTest, ValuesBeyondUnicodeAreUnchanged) {
    EXPECT_EQ(UnicodeCase::toLower(0x10FFFF), 0x10FFFFu);
    EXPECT_EQ(UnicodeCase::toLower(0x110000), 0x110000u);
    EXPECT_EQ(UnicodeCase::toLower(0x7FFFFFFF), 0x7FFFFFFFu);
    EXPECT_EQ(UnicodeCase::toLower(0xFFFFFFFF), 0xFFFFFFFFu);
}

// Catches a mis-decoded range: the result is always a lower-case code point, so mapping it again
// changes nothing, and nothing maps outside the code space or into the surrogates.
TEST(UnicodeCaseTest, MappingIsIdempotentOverTheWholeCodeSpace) {
    uint32_t mapped = 0;
    for (char32_t cp = 0; cp <= 0x10FFFF; ++cp) {
        const char32_t lower = UnicodeCase::toLower(cp);
        if (lower == cp) {
            continue;
        }
        ++mapped;
        ASSERT_LE(lower, 0x10FFFFu) << std::hex << static_cast<uint32_t>(cp);
        ASSERT_FALSE(lower >= 0xD800 && lower <= 0xDFFF) << std::hex << static_cast<uint32_t>(cp);
        ASSERT_EQ(UnicodeCase::toLower(lower), lower) << std::hex << static_cast<uint32_t>(cp);
    }
    // Some 1,400 code points have a simple lower case; a broken table lands far from that.
    EXPECT_GT(mapped, 1300u);
    EXPECT_LT(mapped, 1600u);
}

}  // namespace
}  // namespace morvax
