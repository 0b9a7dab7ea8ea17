#include "util/base/Tokenizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace morvax {
namespace {

std::vector<std::string> strings(const std::vector<Str>& tokens) {
    std::vector<std::string> out;
    for (const Str& t : tokens) {
        out.push_back(t.toStdString());
    }
    return out;
}

using V = std::vector<std::string>;

TEST(TokenizerTest, CollectorListForm) {
    // The empty token is dropped and the escaped quote is unescaped.
    EXPECT_EQ(strings(Tokenizer::splitList("a,\"b,c\",,d\\\"")), (V{"a", "b,c", "d\""}));
    // A quoted empty token is kept; text after a closing quote joins the token.
    EXPECT_EQ(strings(Tokenizer::splitList("\"\",x\"y\"z,\"p\"q")), (V{"", "xyz", "pq"}));
    EXPECT_EQ(strings(Tokenizer::splitList("Application, System")), (V{"Application", " System"}));
    EXPECT_TRUE(Tokenizer::splitList("").empty());
    EXPECT_TRUE(Tokenizer::splitList(",,,").empty());
}

TEST(TokenizerTest, FlagsAndQuoteResult) {
    std::vector<Str> tokens;
    const char* text = "a;b\\;c;\"d;e\"";
    char open = Tokenizer::tokenize(text, text + std::strlen(text), tokens, ";", true, true, false,
                                    true, false);
    EXPECT_EQ(open, 0);
    // Without unescaping the backslash stays; delimiters are tokens of their own.
    EXPECT_EQ(strings(tokens), (V{"a", ";", "b\\;c", ";", "\"d;e\""}));

    tokens.clear();
    const char* raw = "x\\,y,\"open";
    open = Tokenizer::tokenize(raw, raw + std::strlen(raw), tokens, ",", false, false, true, false,
                               true);
    EXPECT_EQ(open, '"');
    EXPECT_EQ(strings(tokens), (V{"x\\", "y", "open"}));

    tokens.clear();
    const char* trailing = "abc\\";
    Tokenizer::tokenize(trailing, trailing + 4, tokens, ",", false, false, false, false, true);
    EXPECT_EQ(strings(tokens), (V{"abc"}));

    tokens.clear();
    const char* empties = "a,,b";
    Tokenizer::tokenize(empties, empties + 4, tokens, ",", false, false, false, true, true);
    EXPECT_EQ(strings(tokens), (V{"a", "", "b"}));
}

}  // namespace
}  // namespace morvax
