#include "util/base/Diagnostics.h"

#include <gtest/gtest.h>

#include "support/DiagnosticsCapture.h"
#include "util/base/LastError.h"
#include "util/base/Str.h"

namespace morvax {
namespace {

DiagnosticsChannel channel("DiagnosticsTest");

// Without logging, a report is an unconfigured log line: INFO and above, bare, CR LF.
TEST(DiagnosticsTest, WithoutAHookReportsGoToStandardErrorAsBareLines) {
    DiagnosticsHook previous = setDiagnosticsHook(nullptr);
    Str expected;
    expected.appendFormatError(2, "open: %m");
    testing::internal::CaptureStderr();
    LastError::set(2);
    channel.warn("open: %m");
    EXPECT_EQ(LastError::get(), 2u);
    channel.debug("hidden");
    channel.log(LOG_WARN, StrSegment("100% as given"));
    std::string written = testing::internal::GetCapturedStderr();
    setDiagnosticsHook(previous);
    EXPECT_EQ(written, expected.toStdString() + "\r\n100% as given\r\n");
}

TEST(DiagnosticsTest, AHookSeesChannelLevelAndTheCallersLastError) {
    test::DiagnosticsCapture capture;
    LastError::set(2);
    channel.fatal("a %s: %m", "b");
    channel.debug("%d", 7);
    channel.log(LOG_WARN, StrSegment("100%"));
    Str expected;
    expected.appendFormatError(2, "DiagnosticsTest FATAL a b: %m");
    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{expected.toStdString(), "DiagnosticsTest DEBUG 7",
                                        "DiagnosticsTest WARN 100%"}));
    EXPECT_EQ(LastError::get(), 2u);
}

}  // namespace
}  // namespace morvax
