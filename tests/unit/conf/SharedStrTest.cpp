#include "conf/SharedStr.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace morvax {
namespace {

TEST(SharedStrTest, LineEndsBecomeLineFeeds) {
    struct Case {
        std::string bytes;
        std::string text;
    };
    const Case cases[] = {
        {"a\r\nb", "a\nb"},     {"a\rb", "a\nb"},
        {"a\r\r\nb", "a\n\nb"}, {"a\n\rb", "a\n\nb"},
        {"\r", "\n"},           {"a\r", "a\n"},
        {"\r\n\r\n", "\n\n"},   {"a\nb", "a\nb"},
        {"plain", "plain"},     {std::string("a\0\rb", 4), std::string("a\0\nb", 4)},
    };
    for (const Case& c : cases) {
        SharedStr text(StrSegment(c.bytes.data(), c.bytes.size()));
        EXPECT_EQ(std::string(text.view()), c.text) << c.bytes;
        // The text is always terminated, also when normalising shortened it.
        EXPECT_EQ(text.c_str()[text.size()], '\0');
    }
}

TEST(SharedStrTest, EmptyBytesAreTheNullHandle) {
    SharedStr none;
    SharedStr fromEmpty{StrSegment("")};
    EXPECT_TRUE(fromEmpty.empty());
    EXPECT_TRUE(fromEmpty.sharesTextWith(none));
    EXPECT_STREQ(none.c_str(), "");
    EXPECT_EQ(none, fromEmpty);
}

TEST(SharedStrTest, CopiesShareTheBytesUntilTheLastOwnerGoes) {
    SharedStr copy;
    {
        SharedStr original(StrSegment("value"));
        const char* bytes = original.data();
        copy = original;
        SharedStr assigned(StrSegment("other"));
        assigned = copy;
        EXPECT_EQ(copy.data(), bytes);
        EXPECT_EQ(assigned.data(), bytes);
        SharedStr& self = assigned;
        assigned = self;
        EXPECT_EQ(assigned.data(), bytes);
        SharedStr moved(std::move(assigned));
        EXPECT_EQ(moved.data(), bytes);
    }
    EXPECT_EQ(copy, StrSegment("value"));
}

TEST(SharedStrTest, ThreadsCopyOneHandleAtOnce) {
    const SharedStr shared(StrSegment("shared by all"));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&shared] {
            for (int i = 0; i < 100000; ++i) {
                SharedStr copy(shared);
                SharedStr other;
                other = copy;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    // A lost count would have freed the text under the original.
    SharedStr last(shared);
    EXPECT_EQ(last, StrSegment("shared by all"));
}

}  // namespace
}  // namespace morvax
