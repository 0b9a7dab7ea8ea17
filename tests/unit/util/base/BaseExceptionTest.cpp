#include "util/base/BaseException.h"

#include <gtest/gtest.h>

#include "util/base/ComponentException.h"
#include "util/base/LastError.h"
#include "util/base/ThreadException.h"

namespace morvax {
namespace {

TEST(BaseExceptionTest, MessagesAndDefaults) {
    EXPECT_STREQ(BaseException(Str()).what(), "BaseException");
    EXPECT_STREQ(BaseException(Str("as %s it is")).what(), "as %s it is");
    EXPECT_STREQ(BaseException("n=%d %s", 3, "x").what(), "n=3 x");
    EXPECT_STREQ(BaseException(BaseException::Prefix{"prefix: "}, "%d", 7).what(), "prefix: 7");
    ThreadException copy = ThreadException("thread %s", "t1");
    ThreadException again(copy);
    EXPECT_STREQ(again.what(), "thread t1");
    try {
        throw ComponentException("bad %s", "pattern");
    } catch (const BaseException& e) {
        EXPECT_STREQ(e.what(), "bad pattern");
    }
    Str target("x: ");
    again.appendTo(target);
    EXPECT_EQ(target, "x: thread t1");
}

}  // namespace
}  // namespace morvax
