#include <windows.h>

#include <shellapi.h>

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "input/WideCommandLine.h"

namespace morvax {
namespace {

// The platform's own splitter is the reference: any line made of the characters that matter
// must come apart the same way.
TEST(WideCommandLineTest, AgreesWithThePlatformsSplitter) {
    const char16_t alphabet[] = u"a \t\"\\";
    std::mt19937 random(20261125);
    for (int round = 0; round < 20000; ++round) {
        WStr line = round % 2 == 0 ? u"prog" : u"";
        const size_t length = 1 + random() % 12;
        for (size_t i = 0; i < length; ++i) {
            line.push_back(alphabet[random() % 5]);
        }
        int count = 0;
        wchar_t** reference = CommandLineToArgvW(reinterpret_cast<LPCWSTR>(line.c_str()), &count);
        ASSERT_NE(reference, nullptr);
        std::vector<WStr> expected;
        for (int i = 0; i < count; ++i) {
            expected.emplace_back(reinterpret_cast<const char16_t*>(reference[i]));
        }
        LocalFree(reference);
        WideCommandLine ours;
        ASSERT_TRUE(ours.split(line));
        ASSERT_EQ(ours.arguments(), expected) << Str::fromWide(line).c_str();
    }
}

}  // namespace
}  // namespace morvax
