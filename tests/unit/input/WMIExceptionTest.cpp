#include "input/WMIException.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/LogCapture.h"

namespace morvax {
namespace {

TEST(WMIExceptionTest, FormatsMessageCodeTextAndDescription) {
    EXPECT_EQ(formatWMIError("Executing query failed (query=\"SELECT x\")",
                             static_cast<int32_t>(0x80041021u), ": SELECT x"),
              "Executing query failed (query=\"SELECT x\") (error=\"Query is syntactically not "
              "valid.\" HRESULT=80041021) (: SELECT x)");
    // Without a description the text ends behind the HRESULT's parenthesis.
    EXPECT_EQ(formatWMIError("Connect failed", static_cast<int32_t>(0x80041002u), ""),
              "Connect failed (error=\"Object cannot be found.\" HRESULT=80041002)");
    EXPECT_EQ(formatWMIError("x", static_cast<int32_t>(0x8004104Au), ""),
              "x (error=\"Undefined error.\" HRESULT=8004104A)");
    EXPECT_EQ(formatWMIError("x", static_cast<int32_t>(0x8004108Bu), ""),
              "x (error=\"FormatMessage was unable to decode error (2147750027), (0x8004108b)\" "
              "HRESULT=8004108B)");
}

TEST(WMIExceptionTest, IsLoggedOnceWhenMadeEvenWithoutACatcher) {
    test::LogCapture writer;
    {
        WMIException unthrown(static_cast<int32_t>(0x8004100Eu), "Connecting failed", "");
        EXPECT_EQ(unthrown.code(), static_cast<int32_t>(0x8004100Eu));
        EXPECT_STREQ(unthrown.what(),
                     "Connecting failed (error=\"Namespace specified cannot be found.\" "
                     "HRESULT=8004100E)");
    }
    ASSERT_EQ(writer.formatted().size(), 1u);
    EXPECT_EQ(writer.formatted()[0],
              "WMI ERROR Connecting failed (error=\"Namespace specified cannot be found.\" "
              "HRESULT=8004100E)");
}

}  // namespace
}  // namespace morvax
