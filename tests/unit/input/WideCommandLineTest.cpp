#include "input/WideCommandLine.h"

#include <gtest/gtest.h>

#include <vector>

namespace morvax {
namespace {

std::vector<WStr> split(const char16_t* line) {
    WideCommandLine commandLine;
    EXPECT_TRUE(commandLine.split(line));
    return commandLine.arguments();
}

TEST(WideCommandLineTest, QuotesBackslashesAndBlanks) {
    using V = std::vector<WStr>;
    EXPECT_EQ(split(u"\"C:\\Program Files\\m.exe\" -wql \"SELECT * FROM x\""),
              (V{u"C:\\Program Files\\m.exe", u"-wql", u"SELECT * FROM x"}));
    // The program name takes its backslashes and quotes as they stand.
    EXPECT_EQ(split(u"C:\\a\\\"b c"), (V{u"C:\\a\\\"b", u"c"}));
    EXPECT_EQ(split(u"p a\\\\\\\"b \"c\\\\\" d\\e \t "), (V{u"p", u"a\\\"b", u"c\\", u"d\\e"}));
    // A doubled quote inside quotes gives one and closes them; the next quote opens again.
    EXPECT_EQ(split(u"p \"a \"\"b\" \"\" x\"y\"z \"\""), (V{u"p", u"a \"b \"", u"xyz", u""}));
    EXPECT_EQ(split(u"p -namespace \\\\host1\\root\\cimv2"),
              (V{u"p", u"-namespace", u"\\\\host1\\root\\cimv2"}));
    EXPECT_EQ(split(u""), (V{u""}));

    WideCommandLine tooLong;
    EXPECT_FALSE(tooLong.split(WStr(WideCommandLine::kMaxLength + 1, u'a')));
    EXPECT_TRUE(tooLong.arguments().empty());
}

}  // namespace
}  // namespace morvax
