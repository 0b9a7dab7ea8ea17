#include "util/base/ErrorMessageTables.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace morvax {
namespace {

std::u16string text(const char16_t* p) {
    return p ? std::u16string(p) : std::u16string(u"<null>");
}

// The ends of both tables and the rows that callers depend on.
TEST(ErrorMessageTablesTest, RowsThatCallersDependOn) {
    struct Row {
        uint32_t code;
        const char16_t* text;
    };
    const Row rows[] = {
        {0x80005000, u"An invalid ADSI path name was passed."},
        {0x80005014, u"The specified search filter is invalid."},
        {0x8000500C, u"The ADSI data type cannot be converted to/from a native DS data type."},
        {0x80041001, u"Call failed."},
        {0x8004108A,
         u"User attempted to register a provider instance but the COM server for the provider "
         u"instance was unloaded."},
        {0x80041002, u"Object cannot be found."},
        {0x80041003, u"Current user does not have permission to perform the action."},
        {0x8004100E, u"Namespace specified cannot be found."},
        {0x80041012, u"referenced in the schema has an incorrect or incomplete registration."},
        {0x80041017, u"Query was not syntactically valid."},
        {0x80041021, u"Query is syntactically not valid."},
        {0x80041032,
         u"Asynchronous process has been canceled internally or by the user. Note that due to the "
         u"timing and nature of the asynchronous operation, the operation may not have been truly "
         u"canceled."},
        {0x80041069, u"Operation timed out."},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(text(ErrorMessageTables::find(row.code)), row.text) << std::hex << row.code;
    }
}

TEST(ErrorMessageTablesTest, UnassignedAndReservedCodesShareTheirTexts) {
    for (uint32_t code : {0x8004104Au, 0x8004104Fu, 0x8004105Eu, 0x8004107Bu, 0x8004107Fu}) {
        EXPECT_EQ(text(ErrorMessageTables::find(code)), u"Undefined error.") << std::hex << code;
    }
    for (uint32_t code : {0x80041022u, 0x80041027u, 0x80041044u}) {
        EXPECT_EQ(text(ErrorMessageTables::find(code)), u"Reserved for future use.")
            << std::hex << code;
    }
    // Neighbours of the gaps have texts of their own.
    for (uint32_t code : {0x80041049u, 0x80041050u, 0x8004105Du, 0x8004105Fu, 0x8004107Au,
                          0x80041080u, 0x80041023u}) {
        const std::u16string t = text(ErrorMessageTables::find(code));
        EXPECT_NE(t, u"Undefined error.") << std::hex << code;
        EXPECT_NE(t, u"Reserved for future use.") << std::hex << code;
    }
}

TEST(ErrorMessageTablesTest, CodesOutsideBothRangesHaveNoText) {
    for (uint32_t code :
         {0x80004FFFu, 0x80005015u, 0x80041000u, 0x8004108Bu, 0u, 0xFFFFFFFFu, 0x80070005u}) {
        EXPECT_EQ(ErrorMessageTables::find(code), nullptr) << std::hex << code;
    }
}

TEST(ErrorMessageTablesTest, EachTableAnswersOnlyForItsOwnRange) {
    EXPECT_EQ(ErrorMessageTables::directoryText(0x80041001), nullptr);
    EXPECT_EQ(ErrorMessageTables::wmiText(0x80005000), nullptr);
    EXPECT_EQ(ErrorMessageTables::directoryText(0x80005000), ErrorMessageTables::find(0x80005000));
    EXPECT_EQ(ErrorMessageTables::wmiText(0x8004108A), ErrorMessageTables::find(0x8004108A));
    EXPECT_EQ(ErrorMessageTables::wmiText(0x8004108B), nullptr);
    EXPECT_EQ(ErrorMessageTables::directoryText(0x80005015), nullptr);
}

// Callers print the texts inside other messages, so each must be one clean line.
void expectUsableTexts(uint32_t first, uint32_t last) {
    for (uint32_t code = first; code <= last; ++code) {
        const char16_t* p = ErrorMessageTables::find(code);
        ASSERT_NE(p, nullptr) << std::hex << code;
        const std::u16string t(p);
        ASSERT_FALSE(t.empty()) << std::hex << code;
        EXPECT_EQ(t.find_first_of(u"\r\n"), std::u16string::npos) << std::hex << code;
        EXPECT_NE(t.front(), u' ') << std::hex << code;
        EXPECT_EQ(t.back(), u'.') << std::hex << code;
    }
}

TEST(ErrorMessageTablesTest, EveryCodeInRangeHasOneCleanLine) {
    expectUsableTexts(ErrorMessageTables::kDirectoryFirst, ErrorMessageTables::kDirectoryLast);
    expectUsableTexts(ErrorMessageTables::kWmiFirst, ErrorMessageTables::kWmiLast);
    EXPECT_EQ(ErrorMessageTables::kDirectoryLast - ErrorMessageTables::kDirectoryFirst + 1, 21u);
    EXPECT_EQ(ErrorMessageTables::kWmiLast - ErrorMessageTables::kWmiFirst + 1, 138u);
}

}  // namespace
}  // namespace morvax
